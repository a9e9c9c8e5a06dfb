// CNoteClient: data units and cache deliveries.
#include "client/CNoteClient.h"
