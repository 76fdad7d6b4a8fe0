// The backend choice that [SipServer] DatabaseType makes, shared by the connection and result factories.
#ifndef VELM_BACKENDCHOICE_H
#define VELM_BACKENDCHOICE_H

#include "Mutex.h"

#include <atomic>

namespace velm {

// Decides once per process, under `mutex`, whether [SipServer] DatabaseType
// asks for ODBC; `useNative` ends up false only for "odbc" in any case.
// Each factory passes its own flags so each decides on its first call.
// `initialized` is set only after `useNative` holds the choice, so a thread
// that sees it set without the lock also sees the choice.
void chooseBackend(std::atomic<bool>& initialized, std::atomic<bool>& useNative, osk::Mutex& mutex);

} // namespace velm

#endif
