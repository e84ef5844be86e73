/*
 * storage-media: prints the device's storage media, and the supply voltage where it can be read.
 *
 *     storage-media [flash | data | external | usb]...
 *
 * Without arguments all kinds are printed; with some, those alone.
 */

#include <rkutils/adc.h>
#include <rkutils/storage.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const struct {
  uint32_t type;
  const char* name;
} kinds[] = {{STORAGE_TYPE_FLASH, "flash"},
             {STORAGE_TYPE_DATA, "data"},
             {STORAGE_TYPE_EXTERNAL, "external"},
             {STORAGE_TYPE_USB, "usb"}};

/* 0 where there is none of this name. */
static uint32_t kind_of(const char* name) {
  size_t i;
  for (i = 0; i < sizeof kinds / sizeof *kinds; ++i) {
    if (strcmp(kinds[i].name, name) == 0) return kinds[i].type;
  }
  return 0;
}

static const char* name_of(uint32_t type) {
  size_t i;
  for (i = 0; i < sizeof kinds / sizeof *kinds; ++i) {
    if (kinds[i].type == type) return kinds[i].name;
  }
  return "other";
}

static void print(const StorageEntry* medium) {
  printf("%s %d: %s", name_of(medium->type), (int)medium->index, medium->partition);
  if (medium->size == 0) {
    printf(", cannot be opened");
  } else if (medium->size != UINT64_MAX) {
    printf(", %" PRIu64 " bytes", medium->size);
  }
  if (*medium->mountpoint != '\0') printf(", at %s", medium->mountpoint);
  if (medium->total != UINT64_MAX) {
    printf(", %" PRIu64 " of %" PRIu64 " free", medium->available, medium->total);
  }
  putchar('\n');
}

static int print_media(uint32_t mask) {
  StorageList* media = old_get_storage(mask);
  list_node* node;
  if (media == NULL) return EXIT_FAILURE;
  list_for_each (node, &media->entries) print(list_entry(node, StorageEntry, links));
  old_free_storage(media);
  free(media);
  return EXIT_SUCCESS;
}

static void print_supply(void) {
  float millivolts;
  if (!dw4600_adc_supported()) return;
  if (dw4600_adc_read("/sys/bus/iio/devices/iio:device0/in_voltage0_raw", &millivolts) != 0) return;
  printf("supply: %.0f mV\n", (double)millivolts);
}

int main(int argc, char** argv) {
  uint32_t mask = 0;
  int i;
  for (i = 1; i < argc; ++i) {
    const uint32_t kind = kind_of(argv[i]);
    if (kind == 0) {
      fputs("usage: storage-media [flash | data | external | usb]...\n", stderr);
      return EXIT_FAILURE;
    }
    mask |= kind;
  }
  if (print_media(mask) != EXIT_SUCCESS) return EXIT_FAILURE;
  print_supply();
  return EXIT_SUCCESS;
}
