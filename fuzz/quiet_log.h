#pragma once

#include <ace/Log_Msg.h>

/// Switches the process's log off, including the formatting of its lines.
inline void quiet_log() {
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD);
}
