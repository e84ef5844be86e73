// What the tests of status files and FIFOs share: empty status folders.
#ifndef TESTS_MESSAGING_STATUS_FIXTURE_H
#define TESTS_MESSAGING_STATUS_FIXTURE_H

#include <rkutils/status_interface.h>

#include <string>

#include "../foundations/file_fixture.h"

// Starts without "/tmp/status" and with an empty "/nvstatus".
class StatusTest : public FileTest {
 protected:
  StatusTest();
  ~StatusTest() override;
};

// With an interface on the folder "/tmp/status/app".
class StatusAppTest : public StatusTest {
 protected:
  StatusAppTest();

  StatusInterface status_;
};

// What is in that folder.
Tree app_tree();

// A String of all bytes of a text, NULs included.
String string_of(const std::string& bytes);
std::string bytes_of(String const& text);

#endif
