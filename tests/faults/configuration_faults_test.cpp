// Injected faults in the configuration layer.

#include "families.h"
#include "layer.h"

faults::Layer faults::layer() {
  return {"configuration",
          together({cfread(), config_daemon_client(), config_reader(), configd(), system_info()})};
}
