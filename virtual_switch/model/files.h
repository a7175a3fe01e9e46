// SPDX-License-Identifier: Apache-2.0
// Files and folders of the daemon. All functions throw Refusal, with a sentence that
// names the path.
#ifndef VSWITCH_FILES_H
#define VSWITCH_FILES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model/refusal.h"

namespace vswitch {

// The whole content of a regular file of at most `max_size` bytes; nothing when there
// is no such file. A link is not followed.
std::optional<std::string> read_file(const std::string &path, size_t max_size);

// All of standard input, at most `max_size` bytes.
std::string read_standard_input(size_t max_size);

// Beside its owner, a file may be read by nobody, or by whoever may enter its folder as a member of the
// folder's group.
enum class Readers { owner, folder_group };

// The next content of a file, on the disk under another name until it takes the file's place.
class FileDraft {
  public:
    // Writes it. Whatever fails leaves nothing.
    FileDraft(const std::string &path, std::string_view content, Readers readers = Readers::owner);
    // Removes it, unless it is in its place.
    ~FileDraft();
    FileDraft(const FileDraft &) = delete;
    FileDraft &operator=(const FileDraft &) = delete;

    // Puts it into its place, where it may be lost with the power if this throws afterwards.
    void take_place();
    bool is_in_place() const { return draft_.empty(); }

  private:
    std::string path_;
    std::string draft_; // empty once it is in its place
};

// Replaces a file by one with this content. When this returns, the file is on the disk; when it
// throws, the former file is there unchanged.
void replace_file(const std::string &path, std::string_view content, Readers readers = Readers::owner);

// Makes a file's content durable, whoever has written it.
void sync_file(const std::string &path);

// Makes the names of a folder's files durable.
void sync_directory(const std::string &directory);

// Makes sure that a folder is there. Returns whether it was made now, with its missing
// parents; the umask decides who may enter. `purpose` names it in errors, for instance
// "state folder".
bool ensure_directory(const std::string &path, const char *purpose);

// Which file has a name, and what it was like when it was looked at. Whoever writes into a
// file changes the time, whoever puts another in its place the identity.
struct FileState {
    uint32_t device_major = 0, device_minor = 0;
    uint64_t inode = 0;
    uint64_t size = 0;
    int64_t seconds = 0; // when it was written last
    uint32_t nanoseconds = 0;

    bool is_same_file(const FileState &other) const {
        return device_major == other.device_major && device_minor == other.device_minor && inode == other.inode;
    }
    bool operator==(const FileState &) const = default;
};

// Nothing when there is no such file, or it cannot be looked at. Throws nothing.
std::optional<FileState> file_state(const std::string &path);

// Holds a lock for as long as the object lives, so that one daemon owns what it stands for.
// The kernel releases it when the process ends, however it ends.
class Lock {
  public:
    // A file is made when missing and stays; who removes it makes room for another lock.
    // Nothing that happens to the files in a folder takes the folder's lock away.
    enum class On { file, folder };

    // Throws at once, with `busy` as the sentence, when another process holds it.
    Lock(On what, const std::string &path, const std::string &busy);
    ~Lock();
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

  private:
    int descriptor_;
};

} // namespace vswitch

#endif
