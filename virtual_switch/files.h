/* Files and folders of the daemon. All functions throw Refusal, with a sentence that
 * names the path. */
#ifndef VSWITCH_FILES_H
#define VSWITCH_FILES_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace vswitch {

/* The whole content of a regular file of at most `max_size` bytes; nothing when there
 * is no such file. */
std::optional<std::string> read_file(const std::string &path, std::size_t max_size);

/* Replaces a file by one with this content that only the owner may read. When this
 * returns, the file is on the disk; when it throws, the former file is there unchanged. */
void replace_file(const std::string &path, std::string_view content);

/* Makes the names of a folder's files durable. */
void sync_directory(const std::string &directory);

/* Makes sure that a folder is there. Returns whether it was made now, with its missing
 * parents; the umask decides who may enter. `purpose` names it in errors, for instance
 * "state folder". */
bool ensure_directory(const std::string &path, const char *purpose);

/* Holds a lock file locked for as long as the object lives, so that one daemon owns
 * what the file stands for. The kernel releases the lock when the process ends, however
 * it ends; the file stays. */
class FileLock {
  public:
    /* Throws at once, with `busy` as the sentence, when another process holds it. */
    FileLock(const std::string &path, const std::string &busy);
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

  private:
    int descriptor_;
};

} // namespace vswitch

#endif
