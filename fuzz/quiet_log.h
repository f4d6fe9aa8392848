#pragma once

#include <ace/Log_Msg.h>

/// Turns the process's log off, rendering included.
inline void quiet_log() {
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD);
}
