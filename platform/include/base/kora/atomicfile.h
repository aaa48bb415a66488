// The one way the platform replaces a file: initialisation files, drawings
// and DGN files are all written through it, so they all follow one rule.
//
// The bytes go to a temporary file in the folder of the file they replace,
// are flushed to disk, and the temporary file is renamed over the target,
// so a reader sees the old file or the new one and never a part of either.
// - A target reached through symbolic links is replaced where it really
//   lives; the links stay links.
// - The new file keeps the permission bits of the file it replaces; a new
//   file gets rw-rw-rw- less the process's umask.
// - When anything fails (a folder that cannot be written, a full disk, a
//   failed flush) the temporary file is removed and the target is left as
//   it was; the error names the target and the system's reason.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <expected>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

#include "kora/export.h"
#include "kora/status.h"

namespace Kora {

// Why a file could not be written: the status to report (eFileAccessErr
// when the folder refuses a new file, eFileWriteError when writing or
// replacing fails) and a message naming the file and the reason.
struct FileError {
    ErrorStatus status = eFileWriteError;
    std::string message;
};

class KORA_API AtomicFileWriter {
public:
    // Creates the temporary file beside `target`.
    static std::expected<AtomicFileWriter, FileError> create(const std::filesystem::path& target);

    AtomicFileWriter(AtomicFileWriter&& other) noexcept;
    AtomicFileWriter& operator=(AtomicFileWriter&& other) noexcept;
    AtomicFileWriter(const AtomicFileWriter&) = delete;
    AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;
    // A writer that was not committed removes its temporary file.
    ~AtomicFileWriter();

    // Appends bytes to the temporary file.
    std::expected<void, FileError> write(std::string_view bytes);
    std::expected<void, FileError> write(std::span<const std::byte> bytes);
    // Flushes the file to disk and renames it over the target; answers the
    // status of the new file (its inode and times tell later readers
    // whether it changed again). The writer is spent afterwards.
    std::expected<struct stat, FileError> commit();

    // The file being replaced, links resolved.
    const std::filesystem::path& target() const { return m_target; }

private:
    AtomicFileWriter(std::filesystem::path target, std::string temporary, int fd);
    FileError failure(ErrorStatus status, const char* what, int error) const;
    void discard();

    std::filesystem::path m_target;
    std::string m_temporary;
    int m_fd = -1;
    std::string m_shownName;  // the target as the caller named it, for messages
};

// Writes a whole file at once through an AtomicFileWriter.
KORA_API std::expected<void, FileError> writeFileAtomically(const std::filesystem::path& target,
                                                            std::span<const std::byte> bytes);
KORA_API std::expected<void, FileError> writeFileAtomically(const std::filesystem::path& target,
                                                            std::string_view bytes);

}  // namespace Kora
