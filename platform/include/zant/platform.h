// Everything the appliance SDK offers a web-API module.
#pragma once

#include "zant/appliance.h"
#include "zant/json_util.h"
#include "zant/logger.h"
#include "zant/nxo.h"
#include "zant/qrt.h"
#include "zant/relay.h"
#include "zant/tarnova.h"
#include "zant/vlibc.h"
#include "zant/webapi.h"
#include "zant/webman.h"
#include "zant/webutils.h"
