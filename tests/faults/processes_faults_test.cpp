// Injected faults in the layer of processes.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"processes", together({commands(), locks(), plug_ins(), process_table()})};
}
