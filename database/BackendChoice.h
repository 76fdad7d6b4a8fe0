#ifndef VELM_BACKENDCHOICE_H
#define VELM_BACKENDCHOICE_H

#include "Mutex.h"

namespace velm {

// Decides once per process, under `mutex`, whether [SipServer] DatabaseType
// asks for ODBC; `useNative` ends up false only for "odbc" in any case.
// Each factory passes its own flags so each decides on its first call.
void chooseBackend(bool& initialized, bool& useNative, osk::Mutex& mutex);

} // namespace velm

#endif
