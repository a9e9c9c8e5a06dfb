// CNoteClient: construction, Initialize, the instance registry, resource messages and teardown.
#include "client/CNoteClient.h"
