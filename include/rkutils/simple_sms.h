/*
 * CSimpleSMS: sending a short text message, and reading those that have come.
 *
 *     if (CSimpleSMS("+4930123456", "uplink restored").send() != 0) return -1;
 *
 *     std::vector<std::pair<long, std::string>> ids;
 *     CSimpleSMS::RetrieveIncomingIds(ids);
 *     for (auto const& id : ids) {
 *       std::unique_ptr<CSimpleSMS> sms(CSimpleSMS::getIncomingSMSById(id.second));
 *       if (sms && handle(sms->address, sms->text)) CSimpleSMS::DeleteIncomingSMSById(id.second);
 *     }
 *
 * Sending goes through a file that is handed to the tool "/usr/local/sbin/send-sms":
 *
 *     To: +4930123456
 *
 *     uplink restored
 *
 * Received messages are files in the spool, "/var/spool/sms/incoming/", each known by its name
 * there, its id:
 *
 *     From: +4930123456
 *     Received: 2026-11-21 09:00:00
 *
 *     understood
 *
 * The header ends at the first empty line, and the text is everything after it, unchanged. Header
 * lines are words with spaces between them, of which the first tells what the line is; words and
 * lines may hold any other byte, a carriage return for one, which is part of its word.
 *
 * Ids. A name that is empty, or holds a "/" or a NUL, is no file of the spool: no id leads out of
 * it.
 *
 * Failures are told by results and by the log messages given below, which go to syslog with the
 * host program's settings. All but send() throw std::bad_alloc where memory runs out, and leave
 * nothing open or allocated.
 *
 * Threads and signals: an object is for one thread at a time; nothing else is shared, so different
 * objects, and the static members, may be used by several. Signal handlers do not disturb; nothing
 * here is for them. A thread that is cancelled (pthread_cancel(3)) finishes its call first; in
 * send() it waits for the tool.
 */
#ifndef RKUTILS_SIMPLE_SMS_H
#define RKUTILS_SIMPLE_SMS_H

#include <rkutils/export.h>

#include <string>
#include <utility>
#include <vector>

class RK_API CSimpleSMS {
 public:
  /* A message without anything. */
  CSimpleSMS();

  /* A message to be sent. */
  CSimpleSMS(std::string const& recipient, std::string const& body);

  /*
   * Writes address and text into a new file, "/tmp/outgoing-sms." and six characters, readable by
   * its owner alone, and runs the tool on it with run_command() of <rkutils/command.h>. Waits until
   * the tool has ended, without a limit.
   *
   * Returns 0 when the tool ended with status 0; the file is the tool's then and stays. -1 when the
   * file could not be made or written (a full disk: the tool is not run), or the tool was not
   * there, failed or was killed; no file is left. Throws nothing.
   *
   * Address and text are written as they are, up to their first NUL, and nothing is checked: keep
   * newlines out of an address, for what follows one is another header line, or text.
   */
  int send();

  /*
   * Appends the ids of all messages in the spool to `ids`, each behind its time: st_ctime of
   * stat(2), when the file last changed, in seconds since 1970. In no particular order; sort them
   * for the oldest first. Only regular files count, as the directory tells their types.
   *
   * Without a spool nothing is appended or logged. A file that cannot be examined is left out:
   *     LOG_DEBUG "Unable to stat /var/spool/sms/incoming/NAME - errno=" and the reason
   * LOG_ERR "Unable to close the directory /var/spool/sms/incoming/" says that closing failed; the
   * ids are there all the same. What was appended when memory runs out stays.
   */
  static void RetrieveIncomingIds(std::vector<std::pair<long, std::string>>& ids);

  /*
   * Reads the message `id`, whatever its length.
   *
   *   - A header line "From: WORDS" gives the address and "Received: WORDS" the time of reception,
   *     as they are written but with one space between two words. What a second one says is added,
   *     after a space.
   *   - Any other line is skipped, and one of them with nothing behind it:
   *         LOG_DEBUG "sms: Ignoring unrecognized line : " and the line in double quotes
   *
   * Returns the message, which the caller deletes; or NULL:
   *   - there is no such file, it cannot be read to its end, or it has no empty line:
   *         LOG_DEBUG "sms: file "PATH" not existing or invalid, errno=" and the reason; the
   *         C library's text for no error where the file was read but is not a message
   *   - there is no memory for the message:
   *         LOG_ERR "sms: Unable to allocate sms - out of memory!?"
   *
   * Waits where opening and reading the file do, on a pipe for one.
   */
  static CSimpleSMS* getIncomingSMSById(std::string const& id);

  /*
   * Removes the message `id` from the spool with unlink(2).
   *
   * Returns 0, or -1 when there is none or it cannot be removed; errno says why.
   */
  static int DeleteIncomingSMSById(std::string const& id);

  std::string address;  /* to whom it goes, or from whom it came */
  std::string received; /* when, in the words of the spool; empty for one to be sent */
  std::string text;
};

#endif
