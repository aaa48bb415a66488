#include "kora/atomicfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

namespace fs = std::filesystem;

namespace Kora {

namespace {

// Follows symbolic links from `path` to the file they end at, which need
// not exist yet (a link to a file still to be written is written through).
// A chain longer than the system would follow is left where it stopped;
// the rename then fails with the system's own reason.
fs::path resolveLinks(fs::path path)
{
    for (int hops = 0; hops < 40; ++hops) {
        std::error_code ec;
        if (!fs::is_symlink(path, ec)) break;
        const fs::path next = fs::read_symlink(path, ec);
        if (ec) break;
        path = next.is_absolute() ? next : path.parent_path() / next;
    }
    return path;
}

std::atomic<unsigned> g_counter{0};

}  // namespace

AtomicFileWriter::AtomicFileWriter(fs::path target, std::string temporary, int fd)
    : m_target(std::move(target)), m_temporary(std::move(temporary)), m_fd(fd)
{
}

std::expected<AtomicFileWriter, FileError> AtomicFileWriter::create(const fs::path& target)
{
    const fs::path real = resolveLinks(target);
    const fs::path folder = real.has_parent_path() ? real.parent_path() : fs::path(".");
    const std::string prefix = (folder / ("." + real.filename().string())).string() + "." + std::to_string(::getpid()) + ".";
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string temporary = prefix + std::to_string(++g_counter) + ".tmp";
        // 0666 less the umask: what any new file of the user's gets.
        const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            AtomicFileWriter writer(real, std::move(temporary), fd);
            writer.m_shownName = target.string();
            struct stat existing;
            if (::stat(real.c_str(), &existing) == 0 && ::fchmod(fd, existing.st_mode & 07777) != 0)
                return std::unexpected(writer.failure(eFileAccessErr, "cannot give the new file the old one's permissions", errno));
            return writer;
        }
        if (errno != EEXIST) {
            const int error = errno;
            return std::unexpected(FileError{eFileAccessErr, target.string() + ": cannot create a file in its folder: "
                                                                 + std::strerror(error)});
        }
    }
    return std::unexpected(FileError{eFileAccessErr, target.string() + ": cannot create a temporary file in its folder"});
}

AtomicFileWriter::AtomicFileWriter(AtomicFileWriter&& other) noexcept
    : m_target(std::move(other.m_target)),
      m_temporary(std::move(other.m_temporary)),
      m_fd(std::exchange(other.m_fd, -1)),
      m_shownName(std::move(other.m_shownName))
{
}

AtomicFileWriter& AtomicFileWriter::operator=(AtomicFileWriter&& other) noexcept
{
    if (this != &other) {
        discard();
        m_target = std::move(other.m_target);
        m_temporary = std::move(other.m_temporary);
        m_fd = std::exchange(other.m_fd, -1);
        m_shownName = std::move(other.m_shownName);
    }
    return *this;
}

AtomicFileWriter::~AtomicFileWriter() { discard(); }

void AtomicFileWriter::discard()
{
    if (m_fd < 0) return;
    ::close(m_fd);
    ::unlink(m_temporary.c_str());
    m_fd = -1;
}

FileError AtomicFileWriter::failure(ErrorStatus status, const char* what, int error) const
{
    return FileError{status, m_shownName + ": " + what + ": " + std::strerror(error)};
}

std::expected<void, FileError> AtomicFileWriter::write(std::string_view bytes)
{
    if (m_fd < 0) return std::unexpected(FileError{eFileWriteError, m_shownName + ": the file was already written"});
    const char* p = bytes.data();
    size_t left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(m_fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const FileError error = failure(eFileWriteError, "write failed", n < 0 ? errno : ENOSPC);
            discard();
            return std::unexpected(error);
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    return {};
}

std::expected<void, FileError> AtomicFileWriter::write(std::span<const std::byte> bytes)
{
    return write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

std::expected<struct stat, FileError> AtomicFileWriter::commit()
{
    if (m_fd < 0) return std::unexpected(FileError{eFileWriteError, m_shownName + ": the file was already written"});
    struct stat written;
    if (::fsync(m_fd) != 0 || ::fstat(m_fd, &written) != 0) {
        const FileError error = failure(eFileWriteError, "write failed", errno);
        discard();
        return std::unexpected(error);
    }
    if (::close(std::exchange(m_fd, -1)) != 0) {
        const FileError error = failure(eFileWriteError, "write failed", errno);
        ::unlink(m_temporary.c_str());
        return std::unexpected(error);
    }
    if (::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        const FileError error = failure(eFileWriteError, "cannot replace the file", errno);
        ::unlink(m_temporary.c_str());
        return std::unexpected(error);
    }
    // The rename itself is on disk once the folder is.
    const fs::path folder = m_target.has_parent_path() ? m_target.parent_path() : fs::path(".");
    if (const int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return written;
}

std::expected<void, FileError> writeFileAtomically(const fs::path& target, std::string_view bytes)
{
    auto writer = AtomicFileWriter::create(target);
    if (!writer) return std::unexpected(writer.error());
    if (auto written = writer->write(bytes); !written) return written;
    if (auto committed = writer->commit(); !committed) return std::unexpected(committed.error());
    return {};
}

std::expected<void, FileError> writeFileAtomically(const fs::path& target, std::span<const std::byte> bytes)
{
    return writeFileAtomically(target, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

}  // namespace Kora
