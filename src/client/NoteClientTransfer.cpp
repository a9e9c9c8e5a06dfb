// CNoteClient: packing PDUs into memory handles and resending the document.
#include "client/CNoteClient.h"
