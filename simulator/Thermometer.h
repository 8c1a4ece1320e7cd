#pragma once

namespace simulator {

/// Raw reading of the thermistor of electronics other than Kestrane, on a 12-bit scale.
int thermistorReading(double celsius);

/// Raw reading of the auxiliary probe of Kestrane electronics, on a 12-bit scale of 2.5 V.
int auxiliaryReading(double celsius);

}  // namespace simulator
