/*
 * device-identity: prints what device this is, and whether it may be switched off now.
 *
 *     device-identity [VARIABLE]...
 *
 * Prints the product, the hardware and, for each argument, the variable of the image of that name.
 */

#include <rkutils/systeminfo.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* A value that is not in quotes keeps the newline of its line. */
static void print_variable(const systeminfo* image, const char* name) {
  const char* value = systeminfo_getvar(image, name);
  printf("%s=%.*s\n", name, (int)strcspn(value, "\n"), value);
}

int main(int argc, char** argv) {
  const char* vendor = oem("Vendor");
  printf("vendor   %s\n", *vendor == '\0' ? "unknown" : vendor);
  printf("product  %s\n", get_product()); /* the vendor's text is gone now */
  printf("hardware type %d, extension board %d%s%s\n", dwhw(), get_extension_variant(),
         has_poe() ? ", PoE" : "", has_sim_holder() ? ", SIM holder" : "");

  systeminfo* image = systeminfo_init();
  for (int i = 1; i < argc; ++i) print_variable(image, argv[i]);
  systeminfo_free(image);

  puts(in_maintenance() ? "maintenance is running: do not switch off" : "no maintenance");
  return EXIT_SUCCESS;
}
