// CNoteClient: the conference handshake, cache handles and the subscription.
#include "client/CNoteClient.h"
