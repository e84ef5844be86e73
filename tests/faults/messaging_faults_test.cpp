// Injected faults in the messaging layer.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"messaging", together({events(), sms(), status(), wwanmd()})};
}
