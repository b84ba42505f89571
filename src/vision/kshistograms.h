// Umbrella header of the vision code.
#pragma once

#include "backgroundmodel.h"
#include "gridcolordiff.h"
#include "kshistogram.h"
#include "valuetypes.h"
