// CNoteClient: UI messages, the tick, roles and the notepad type.
#include "client/CNoteClient.h"
