// The capture helper lives with the other shared test helpers; tests elsewhere include it here.
#pragma once
#include "../common/HostUICapture.h"
