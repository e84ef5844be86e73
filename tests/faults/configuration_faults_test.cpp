// Injected faults in the configuration layer.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() { return {"configuration", together({configd()})}; }
