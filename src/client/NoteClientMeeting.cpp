// CNoteClient: meeting loss and service notices.
#include "client/CNoteClient.h"
