// Injected faults in the hardware layer.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"hardware",
          together({analogue_inputs(), inputs_and_outputs(), persistent_log(), storage_media()})};
}
