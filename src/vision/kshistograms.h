// Umbrella header of the vision code.
#pragma once

#include "vision/background/backgroundmodel.h"
#include "vision/grid/gridcolordiff.h"
#include "vision/kshistogram.h"
#include "vision/valuetypes.h"
