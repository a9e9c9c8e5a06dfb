// CNoteClient: save, save-as, export and publish.
#include "client/CNoteClient.h"
