// CNoteClient: applying remote changes.
#include "client/CNoteClient.h"
