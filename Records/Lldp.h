// All LLDP records.
#pragma once

#include "Records/LldpConfig.h"
#include "Records/LldpExternalTlv.h"
#include "Records/LldpLocalSystem.h"
#include "Records/LldpRemoteSystem.h"
#include "Records/LldpStatus.h"
#include "Records/LldpValues.h"
