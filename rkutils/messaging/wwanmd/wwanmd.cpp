#include <rkutils/internal/postponed_cancellation.h>
#include <rkutils/internal/sigpipe_window.h>
#include <rkutils/memory.h>
#include <rkutils/messaging/wwanmd/card.h>
#include <rkutils/messaging/wwanmd/connection.h>
#include <rkutils/messaging/wwanmd/exchange.h>
#include <rkutils/messaging/wwanmd/log.h>
#include <rkutils/wwanmd.h>

#include <cstdlib>
#include <cstring>

#include <syslog.h>

namespace internal = rkutils::internal;
namespace wwanmd = rkutils::wwanmd;

namespace {

constexpr int kCardInReset = -11;

bool is_valid_name(const char* application_name) {
  constexpr std::size_t kSize = sizeof(wwanmd_connection::application_name);
  return application_name != nullptr && application_name[0] != '\0' &&
         ::strnlen(application_name, kSize) < kSize;
}

bool is_usable(const wwanmd_connection* connection, const wwanmd_buffer* buffer) {
  return connection != nullptr && buffer != nullptr && wwanmd::check_card(connection->card);
}

int result_of(wwanmd::Outcome outcome) {
  switch (outcome) {
    case wwanmd::Outcome::kDone:
      return 0;
    case wwanmd::Outcome::kInReset:
      return kCardInReset;
    default:
      return -1;
  }
}

// Whether the outcome is one too many of its kind.
bool needs_new_connection(const wwanmd_connection& connection, wwanmd::Outcome outcome) {
  return (outcome == wwanmd::Outcome::kFailed &&
          connection.failures > wwanmd::kToleratedFailures) ||
         (outcome == wwanmd::Outcome::kBusy && connection.busy_count > wwanmd::kToleratedBusyCount);
}

}  // namespace

wwanmd_connection* wwanmd_init(int card, const char* application_name) {
  const internal::PostponedCancellation postponed;
  if (!wwanmd::check_card(card)) return nullptr;
  if (!is_valid_name(application_name)) {
    wwanmd::debug("invalid app name for wwanmd connection");
    return nullptr;
  }
  // The caller's own text: syslog goes on reading it.
  ::openlog(application_name, LOG_PID | LOG_NDELAY, LOG_USER);

  auto* connection = static_cast<wwanmd_connection*>(zalloc(sizeof(wwanmd_connection)));
  if (connection == nullptr) {
    wwanmd::debug("no mem for wwanmd connection");
    return nullptr;
  }
  connection->card = card;
  strlcpy(connection->application_name, application_name, sizeof connection->application_name);
  connection->socket = -1;
  wwanmd::note_exchange(*connection);
  if (wwanmd_open(connection) != 0) {
    wwanmd_free(connection);
    return nullptr;
  }
  return connection;
}

int wwanmd_open(wwanmd_connection* connection) {
  const internal::PostponedCancellation postponed;
  if (connection == nullptr || !wwanmd::check_card(connection->card)) return -1;
  wwanmd::disconnect(*connection);
  if (wwanmd::is_in_reset(connection->card)) {
    wwanmd::debug("wwanmd%d is currently in reset", connection->card);
    return kCardInReset;
  }
  connection->failures = 0;
  connection->busy_count = 0;
  wwanmd::note_exchange(*connection);
  return wwanmd::connect(*connection) ? 0 : -1;
}

void wwanmd_close(wwanmd_connection* connection) {
  const internal::PostponedCancellation postponed;
  if (connection != nullptr) wwanmd::disconnect(*connection);
}

void wwanmd_free(wwanmd_connection* connection) {
  wwanmd_close(connection);
  std::free(connection);
}

int wwanmd_send(wwanmd_connection* connection, wwanmd_buffer* buffer) {
  const internal::PostponedCancellation postponed;
  if (!is_usable(connection, buffer)) return -1;
  if (!wwanmd::begin_command(*connection, *buffer)) return -1;
  if (connection->socket == -1 && wwanmd_open(connection) != 0) {
    wwanmd::note_exchange(*connection);
    return -1;
  }
  const wwanmd::Outcome outcome = wwanmd::send_command(*connection, *buffer);
  if (needs_new_connection(*connection, outcome)) {
    wwanmd_open(connection);
    wwanmd::note_exchange(*connection);
  }
  return result_of(outcome);
}

int wwanmd_recv(wwanmd_connection* connection, wwanmd_buffer* buffer) {
  const internal::PostponedCancellation postponed;
  if (!is_usable(connection, buffer)) return -1;
  if (connection->socket == -1) {
    internal::SigpipeWindow sigpipe_ignored;
    if (wwanmd_open(connection) != 0) {
      sigpipe_ignored.leave_ignored();
      return -1;
    }
  }
  const wwanmd::Outcome outcome = wwanmd::receive_reply(*connection, *buffer);
  if (needs_new_connection(*connection, outcome)) wwanmd_open(connection);
  return result_of(outcome);
}

int wwanmd_command(wwanmd_connection* connection, wwanmd_buffer* buffer) {
  const internal::PostponedCancellation postponed;
  if (!is_usable(connection, buffer)) return -1;
  if (connection->socket == -1 && wwanmd_open(connection) != 0) return -1;
  if (wwanmd_send(connection, buffer) != 0) return -1;
  if (wwanmd_recv(connection, buffer) != 0) {
    wwanmd::debug("command failed");
    return -1;
  }
  return 0;
}

int wwanmd_in_reset(int card) {
  const internal::PostponedCancellation postponed;
  if (!wwanmd::check_card(card)) return -1;
  return wwanmd::is_in_reset(card) ? 1 : 0;
}

int wwanmd_is_suspended(int card) {
  const internal::PostponedCancellation postponed;
  if (!wwanmd::check_card(card)) return -1;
  return wwanmd::is_suspended(card) ? 1 : 0;
}
