// CNoteClient: the auto-save file and the need-save state.
#include "client/CNoteClient.h"
