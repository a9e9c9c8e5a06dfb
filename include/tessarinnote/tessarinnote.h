// The host SDK: everything a host needs to load the plug-in, drive its instances and provide
// the conference service and the host UI library behind them.
#pragma once

#include "tessarinnote/armservice.h"
#include "tessarinnote/armsinks.h"
#include "tessarinnote/armtypes.h"
#include "tessarinnote/notedata.h"
#include "tessarinnote/notehostui.h"
#include "tessarinnote/noteinterface.h"
#include "tessarinnote/uiinterface.h"
