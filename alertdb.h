// AlertDB: the alerting database library. A client program includes only this.
#pragma once

#include "events/event_resp_table.h"
#include "framework/alert_db_table.h"
#include "framework/alert_status.h"
#include "framework/file_locks.h"
#include "framework/open_or_create.h"
#include "text/severity_texts.h"

#include "platform/buffer_cipher.h"
#include "platform/char_set.h"
#include "platform/dos_time.h"
#include "platform/dynamic_library.h"
#include "platform/export.h"
#include "platform/file_names.h"
#include "platform/guid.h"
#include "platform/memory_blocks.h"
#include "platform/named_event.h"
#include "platform/object_manager.h"
#include "platform/profile.h"
#include "platform/record_store.h"
#include "platform/string_table.h"
#include "platform/win_types.h"
