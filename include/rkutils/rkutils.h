/*
 * All public headers of librkutils at once.
 */
#ifndef RKUTILS_RKUTILS_H
#define RKUTILS_RKUTILS_H

#include <rkutils/adc.h>
#include <rkutils/address.h>
#include <rkutils/cfread.h>
#include <rkutils/command.h>
#include <rkutils/configd.h>
#include <rkutils/dio.h>
#include <rkutils/dwlog.h>
#include <rkutils/event.h>
#include <rkutils/export.h>
#include <rkutils/file.h>
#include <rkutils/interface.h>
#include <rkutils/list.h>
#include <rkutils/memory.h>
#include <rkutils/memstream.h>
#include <rkutils/ping.h>
#include <rkutils/process_control.h>
#include <rkutils/route.h>
#include <rkutils/semaphore.h>
#include <rkutils/storage.h>
#include <rkutils/systeminfo.h>
#include <rkutils/text.h>
#include <rkutils/wwanmd.h>

#ifdef __cplusplus
#include <rkutils/config_daemon_client.h>
#include <rkutils/config_reader.h>
#include <rkutils/dynamic_module.h>
#include <rkutils/hash_context.h>
#include <rkutils/hash_table.h>
#include <rkutils/hmac_context.h>
#include <rkutils/ip_address.h>
#include <rkutils/ping_client.h>
#include <rkutils/simple_sms.h>
#include <rkutils/status_interface.h>
#include <rkutils/string.h>
#endif

#endif
