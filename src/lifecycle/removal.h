// A certificate on its way out of the archive: taken out of the index, then its folder and its
// renewal history are deleted. A run that is killed between the two would leave a folder that
// nobody knows of, so a note is put beside it first: ".ID.removed" (docs/formats.md).
#pragma once

#include <string>

#include "archive/certificate_lock.h"
#include "archive/index.h"
#include "base/status.h"

namespace kova {

// Before the index is rewritten. `id` must be a plain name, here and below.
void NoteRemoval(const std::string& id);

// The index was not rewritten.
void ForgetRemoval(const std::string& id);

// True when a run took the certificate out of the index and left the rest of the work.
[[nodiscard]] bool WasRemovalCutShort(const cert_archive::IndexLock& index, const std::string& id);

// The rest of the work: folder, history, note. Under both locks, so that nobody enters, copies or
// heals it meanwhile.
Status FinishRemoval(const cert_archive::CertificateLock& certificate,
                     const cert_archive::IndexLock& index);

// Finishes what killed runs left. What fails is logged.
void FinishRemovals();

}  // namespace kova
