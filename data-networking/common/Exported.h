// The data that the library exports, where the process has it.
//
// A program that refers to one of these objects may hold it itself: its linker makes room for it there, and
// the library has to use that place as its own. A program may as well have a variable of its own that is
// called `logfile` too, and the library has to leave that one alone. The dynamic linker takes either for
// ours; but only the former carries the version of our names. So no unit names these objects but the one that
// defines them: the others go by the pointers below, which name what the dynamic linker has found, and are
// set right when the library is loaded (ExportedData.cpp).
#pragma once

#include <pthread.h>

#include <cstdint>
#include <cstdio>

struct NetCMClientAppInfo;

namespace quorvel::exported {

#pragma GCC visibility push(hidden)
extern pthread_mutex_t* app_mutex;       // NetCMAppMutex
extern NetCMClientAppInfo* app_info;     // g_NetCMClientAppInfo
extern double (*call_act_time)[2];       // ps_call_act_time
extern double (*call_deact_time)[2];     // ps_call_deact_time
extern int (*control_pipe)[2];           // pipe_fds
extern uint32_t** pending_event_record;  // PendingEventRecord
extern FILE** log_file;                  // logfile
extern int* dns_debug;                   // _dns_debug

// Nothing of the library may run before.
void find_places();
#pragma GCC visibility pop

}  // namespace quorvel::exported
