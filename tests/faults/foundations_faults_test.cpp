// Injected faults in the foundations.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"foundations", together({files(), memory(), strings(), tables()})};
}
