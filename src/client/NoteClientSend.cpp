// CNoteClient: local edit detection and change sending.
#include "client/CNoteClient.h"
