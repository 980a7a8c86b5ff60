// The noted move: files of a fresh folder of the archive take the places of a certificate's old
// ones one by one, and a run that is killed between two of them would leave a key beside another
// key's certificate. So the move is noted in the certificate's folder first; whoever renews,
// deploys, checks, revokes, heals or hands out the certificate next finishes it.
//
// An undisturbed move: NoteMove, the renames, FinishNotedMove (which then has nothing to rename and
// removes the fresh folder), and, once the services have the files or nobody is to hand them out,
// ForgetMove. The note stays until then, so that IsMoveNoted tells a certificate whose renewal was
// cut short and that still is to be deployed, though it is no longer due.
//
// docs/formats.md has the note's form. Failures are logged.
#pragma once

#include <string>
#include <vector>

#include "archive/certificate_lock.h"
#include "base/status.h"

namespace kova::cert_archive {

inline constexpr char kMoveNote[] = "noted_move";  // in the certificate's folder, 0600

// Says durably that `files`, in this order, are about to be moved from the archive's folder `fresh`
// (an absolute path) into that of the lock's certificate. Call it before the first rename. A note
// that is there already is finished first.
Status NoteMove(const CertificateLock& lock, const std::string& fresh,
                const std::vector<std::string>& files);

// Moves what is left of a noted move, flushes the folder and removes the fresh one. Done as well
// when nothing is noted. A note that cannot be trusted (damaged, of another certificate, of a
// folder that is another by now) moves nothing; it is logged and removed.
Status FinishNotedMove(const CertificateLock& lock);

// The same for callers without the lock, which is taken only when a move is noted. `id` must be a
// plain name.
Status FinishNotedMove(const std::string& id);

// True when a move was noted and is not forgotten yet. `id` must be a plain name.
[[nodiscard]] bool IsMoveNoted(const std::string& id);

// Removes the note: the move is finished, and the services have the files or are to get them from
// somebody else. Done as well when nothing is noted.
Status ForgetMove(const CertificateLock& lock);

}  // namespace kova::cert_archive
