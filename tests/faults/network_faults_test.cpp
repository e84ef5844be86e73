// Injected faults in the network layer.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"network", together({addresses(), interfaces(), pings(), routes()})};
}
