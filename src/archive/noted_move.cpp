#include "archive/noted_move.h"

#include <fcntl.h>
#include <json/value.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "archive/paths.h"
#include "base/json.h"
#include "base/log.h"
#include "base/unfinished_folder.h"
#include "platform/fd.h"
#include "platform/file_writer.h"

namespace kova::cert_archive {
namespace {

constexpr mode_t kNoteMode = 0600;

struct Note {
  std::string fresh;
  std::string inode;  // of the fresh folder: another one may bear its name by now
  std::vector<std::string> files;
};

std::string NotePath(const std::string& id) { return CertificateFolder(id) + "/" + kMoveNote; }

// Empty when there is no such folder.
std::string InodeOf(const std::string& folder) {
  struct stat status {};
  if (lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return {};
  return std::to_string(status.st_ino);
}

std::string NoteText(const std::string& id, const Note& note) {
  Json::Value document(Json::objectValue);
  document["to"] = id;
  document["from"] = note.fresh;
  document["inode"] = note.inode;
  document["files"] = Json::Value(Json::arrayValue);
  for (const std::string& file : note.files) document["files"].append(file);
  return JsonStyledText(document);
}

// Only a direct child of the archive, and not the certificate's own folder.
bool MayMoveFrom(const std::string& fresh, const std::string& id) {
  const std::string root = std::string(kArchiveRoot) + "/";
  return fresh.starts_with(root) && IsPlainName(fresh.substr(root.size())) &&
         fresh != CertificateFolder(id);
}

// None when the note was not written by this program for this certificate.
std::optional<Note> ReadNote(const std::string& id) {
  Json::Value document;
  if (!JsonFromFile(NotePath(id), document) || TextMember(document, "to") != id) {
    return std::nullopt;
  }
  Note note{TextMember(document, "from"), TextMember(document, "inode"), {}};
  const Json::Value& files = Member(document, "files");
  if (!MayMoveFrom(note.fresh, id) || !files.isArray()) return std::nullopt;
  for (const Json::Value& file : files) {
    if (!file.isString() || !IsPlainName(file.asString())) return std::nullopt;
    note.files.push_back(file.asString());
  }
  return note;
}

Status FailedToFinish(const std::string& from, const std::string& to, int error) {
  LogError(kTag, "Failed to move %s to %s [%d]", from.c_str(), to.c_str(), error);
  return Status::Failed("Failed to move", from + " to " + to, ErrorWords(error));
}

// What is no longer in the fresh folder was moved before.
Status MoveFile(const std::string& name, const std::string& fresh, const std::string& folder) {
  const std::string from = fresh + "/" + name;
  const std::string to = folder + "/" + name;
  if (std::rename(from.c_str(), to.c_str()) == 0 || errno == ENOENT) return {};
  return FailedToFinish(from, to, errno);
}

Status MoveTheRest(const Note& note, const std::string& folder) {
  for (const std::string& file : note.files) {
    if (Status moved = MoveFile(file, note.fresh, folder); !moved) return moved;
  }
  const platform::Fd opened(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened || fsync(opened.Get()) != 0) return FailedToFinish(note.fresh, folder, errno);
  return {};
}

Status RemoveNote(const std::string& id) {
  const std::string path = NotePath(id);
  if (unlink(path.c_str()) == 0 || errno == ENOENT) return {};
  const int error = errno;
  LogError(kTag, "Failed to remove %s [%d]", path.c_str(), error);
  return Status::Failed("Failed to remove", path, ErrorWords(error));
}

Status Distrust(const std::string& id) {
  LogError(kTag, "[%s] is no note of a move of this certificate", NotePath(id).c_str());
  return RemoveNote(id);
}

}  // namespace

Status NoteMove(const CertificateLock& lock, const std::string& fresh,
                const std::vector<std::string>& files) {
  if (Status earlier = FinishNotedMove(lock); !earlier) return earlier;
  const std::string path = NotePath(lock.Id());
  const int error =
      platform::ReplaceFile(path, NoteText(lock.Id(), {fresh, InodeOf(fresh), files}), kNoteMode);
  if (error == 0) return {};
  LogError(kTag, "Failed to write [%s] [%d]", path.c_str(), error);
  return Status::Failed("Failed to write", "[" + path + "]", ErrorWords(error));
}

Status FinishNotedMove(const CertificateLock& lock) {
  if (!lock.Held()) return lock.Outcome();
  if (!IsMoveNoted(lock.Id())) return {};
  const std::optional<Note> note = ReadNote(lock.Id());
  if (!note) return Distrust(lock.Id());
  if (InodeOf(note->fresh) != note->inode) return {};  // moved, and the fresh folder removed
  if (Status moved = MoveTheRest(*note, CertificateFolder(lock.Id())); !moved) return moved;
  std::error_code ignored;  // what stays of the fresh folder does no harm
  std::filesystem::remove_all(note->fresh, ignored);
  (void)KeepUnfinished(note->fresh);  // its mark
  return {};
}

Status FinishNotedMove(const std::string& id) {
  if (!IsMoveNoted(id)) return {};
  const CertificateLock lock(id);
  return FinishNotedMove(lock);
}

bool IsMoveNoted(const std::string& id) {
  struct stat status {};
  return lstat(NotePath(id).c_str(), &status) == 0;
}

Status ForgetMove(const CertificateLock& lock) {
  if (!lock.Held()) return lock.Outcome();
  return RemoveNote(lock.Id());
}

}  // namespace kova::cert_archive
