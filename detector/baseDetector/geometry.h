#pragma once

#include "InternalUtils/ROIArea.h"
#include "detector/baseDetector.h"

/// The geometry of one model, binning mode and region; pure arithmetic. Divisions truncate, each dimension separately.
/// Fails with code 4 for a model without a geometry, then with code 14 for a binning outside 1 to 11.
baseDetector::SensorDesc describeSensor(int model, bins binning, bool roiEnabled, const ROIArea& roi);
