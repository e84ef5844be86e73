// Injected faults in the layer of processes.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"processes", together({commands(), locks(), process_table()})};
}
