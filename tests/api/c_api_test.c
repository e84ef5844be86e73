/* A C99 program on the public headers: what compiles, links and works from C. */

#include <rkutils/rkutils.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static int failures = 0;

static void check(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "failed: %s\n", what);
  ++failures;
}

typedef struct lease {
  int number;
  list_node links;
} lease;

static void lists(void) {
  list_node head = LIST_NODE_INIT(head);
  list_node more;
  list_node *cursor, *following;
  int sum = 0;
  int i;
  list_init(&more);
  for (i = 1; i <= 3; ++i) {
    lease* one = zalloc(sizeof *one);
    if (one == NULL) abort();
    one->number = i;
    list_add_tail(&one->links, i < 3 ? &head : &more);
  }
  list_splice(&more, &head);
  list_for_each (cursor, &head) sum = sum * 10 + list_entry(cursor, lease, links)->number;
  check(sum == 312, "spliced elements come first");
  list_for_each_safe (cursor, following, &head) {
    list_del_init(cursor);
    free(list_entry(cursor, lease, links));
  }
  check(list_empty(&head), "a list is empty once all is deleted");
}

static void texts(void) {
  char line[8];
  mem_stream out = {line, sizeof line};
  check(mem_stream_printf(&out, "%d", 42) == 0, "a number fits");
  check(mem_stream_puts(&out, "abcdefg") == 1, "a long text does not fit");
  check(strcmp(line, "42abcde") == 0, "what fits is there");
  check(mem_stream_get_num_bytes_written(&out, sizeof line, line) == sizeof line, "all is full");
  check(strlcpy(line, "configuration", sizeof line) == 13, "strlcpy counts the whole text");
  check(strcmp(line, "configu") == 0, "strlcpy cuts and terminates");
}

static void configuration(void) {
  configd_query none[1];
  memset(none, 0, sizeof none);
  check(configd_open() == NULL, "no folder, no connection");
  check(configd_get(NULL, none) == -1, "no handle, no get");
  check(configd_add_query(NULL, "%s", "key") == -1, "no handle, no query");
  check(strcmp(configd_fetch(NULL, "%s", "key"), "") == 0, "no handle, no value");
  configd_close(NULL);
}

static void device(void) {
  systeminfo* info = systeminfo_init();
  check(info == NULL, "no file, no table");
  check(strcmp(systeminfo_getvar(info, "NAME"), "") == 0, "no table, no value");
  check(systeminfo_getint(info, "NAME") == -1, "no table, no number");
  systeminfo_free(info);
  check(strcmp(oem("ProductType"), "") == 0, "no file, no value");
  check(strcmp(get_product(), "DW") == 0, "no board, no name");
  check(dwhw() == -1 && get_extension_variant() == -1, "no files, no numbers");
  check(has_poe() + has_sim_holder() + in_maintenance() == 0, "no files, nothing");
  check(get_generation("LTE") == 4, "a technology has its generation");
}

static void events(void) {
  rkevent_record record = {1, 2, "text"};
  check(rkevent(record.event, record.parameter, record.text) == -1, "no pipe, no event");
  check(create_legacy_source(NULL) == NULL, "no context, no source");
  check(register_legacy_sink(NULL) == NULL, "no context, no sink");
  check(dispatch_legacy_event(NULL, &record) == -1, "no socket, no event");
}

static void addresses(void) {
  struct sockaddr_storage address, mask;
  struct sockaddr* const host = (struct sockaddr*)&address;
  char text[CIDR_TEXT_SIZE];
  address_route route;
  uint32_t number = 0;
  memset(&route, 0, sizeof route);
  check(str2addr("192.0.2.17", host) == 0, "a text is an address");
  check(cidr2netmask(24, (struct sockaddr*)&mask, AF_INET) == 0, "a prefix is a mask");
  check(net2cidr(text, host, (struct sockaddr*)&mask) == text, "a mask fits an address");
  check(strcmp(text, "192.0.2.0/24") == 0, "a network is written");
  check(route_differs(&route, NULL) == 1 && route_differs(&route, &route) == 0, "routes differ");
  check(convIPStr2IPUl("1.2.3.4", &number) == 0 && number == 16909060, "a quad is a number");
}

static void digital_io(void) {
  DioStatusAll all;
  uint32_t count = 1;
  unsigned char value = 2;
  memset(&all, 0, sizeof all);
  check(dio_count(&count) == DIO_OK && count == 0, "no driver, no input");
  check(dio_roValue(1, &value) == DIO_ERR_NOENT && value == 2, "no input, no value");
  check(dio_setValue(0, 1) == DIO_ERR_RANGE, "no output has the number 0");
  all.out.count = 9;
  dio_setOutValueInStatus(&all.out, 9, 1);
  check(all.out.bits[1] == 1, "a value is a bit");
  check(dio_getStatus(&all) == DIO_OK && all.out.count == 0, "no driver, nothing in the status");
}

static void persistent_log(void) {
  char text[257] = "text";
  /* The log's lock goes by it. */
  FILE* const mounts = fopen("/etc/fstab", "a");
  check(mounts != NULL && fclose(mounts) == 0, "the router has its list of file systems");
  check(dwlog(1, "") == -1, "no text, no entry");
  check(dwlog_read(text, sizeof text - 1) == -1, "a small buffer is refused");
  check(dwlog_clear() == 0 && dwlog_read(text, sizeof text) == 0, "the log is read");
  check(strcmp(text, "") == 0, "a cleared log is empty");
}

static void storage(void) {
  StorageList* media = old_get_storage(STORAGE_TYPE_FLASH);
  check(media != NULL && media->typeMask == 2, "media are listed");
  check(old_get_storage_device(media, STORAGE_TYPE_USB, 0) == NULL, "flash is not USB");
  old_free_storage(media);
  check(media->count == 0 && list_empty(&media->entries), "a list that was freed is empty");
  free(media);
}

static void analogue_inputs(void) {
  float volts = 1;
  check(adc_read("/nvstatus/missing", NULL, &volts) == -1 && volts == 0, "no file, no value");
  check(adc_read("/proc/version", NULL, NULL) == -1, "no result, no value");
  volts = 1;
  check(dw4600_adc_read(NULL, &volts) == -1 && volts == 0, "no path, no voltage");
  volts = 1;
  check(dw41x0_adc_read("", &volts) == -1 && volts == 0, "no path, no voltage of the other family");
  check(dw4600_adc_supported() == 0 || dw4600_adc_supported() == 1,
        "the converter is known or not");
}

static void interfaces(void) {
  char members[16] = "text";
  check(strcmp(interfaceize("eth0"), "ETH1") == 0, "an interface has a name for users");
  check(wanlink_is_up() == 0 && wanlink_count() == 0, "no link manager, no links");
  check(bridge_members("br0", members, 0) == -1, "no room, no members");
  check(bridge_members("br0", members, sizeof members) == 0, "no bridge, no members");
  check(strcmp(members, "") == 0, "members are emptied");
  check(card2family("em7455") == 0x40004, "a card has its family");
  check(pdb_find_provider("$(reboot)") == NULL, "no shell reads a key");
}

static void processes(void) {
  char caller[16] = "";
  const int self = (int)getpid();
  check(pid_alive(self) == 1 && pid_alive(-1) == 0, "a process is there or not");
  check(get_parent_pid(self) == (int)getppid(), "a process has a parent");
  check(*procname(self) != '\0' && *procname(-1) == '\0', "a process has a name");
  check(get_caller(caller, sizeof caller) == 0 && *caller != '\0', "somebody has called");
  check(get_caller(NULL, sizeof caller) == -1, "no buffer, no caller");
}

static void locks(void) {
  sem_options* options = sem_options_create();
  sem_handle* handle;
  semopt_set_consistent_mode_manual(options);
  handle = sem_create_with_options("/c-api-test", options);
  semopts_release(options);
  check(sem_lock(handle) == 0 && sem_trylock(handle) == 0, "a lock is its owner's");
  check(sem_unlock(handle) == 0 && sem_unlock(handle) == 0, "and is given back as often");
  sem_release(handle);
  check(sem_lock(NULL) == -1, "no handle, no lock");
  check(acquire_lock("/tmp/c-api-test", 1) == 0, "a lock directory is made");
  check(release_lock("/tmp/c-api-test") == 0, "and removed");
}

static void pings(void) {
  time_difference took = {7, 7};
  const uint32_t mark = 1;
  check(icmpping("", "127.0.0.1", 0) == -1, "no interface, no ping");
  check(rawping("lo", NULL, NULL, 0) == -1, "no target, no ping");
  check(__rawping("lo", "127.0.0.1", NULL, "127.0.0.1", NULL, 0, -1, &took, &mark) == -1,
        "no netmask, no ping");
  check(took.seconds == 7 && took.nanoseconds == 7, "no ping, no time");
}

int main(void) {
  lists();
  texts();
  configuration();
  device();
  digital_io();
  persistent_log();
  storage();
  analogue_inputs();
  events();
  addresses();
  interfaces();
  locks();
  pings();
  processes();
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
