#include "kora/ftp.h"

#include <curl/curl.h>
#include <stdlib.h>

#include <filesystem>
#include <optional>
#include <string>

#include "kora/atomicfile.h"

namespace fs = std::filesystem;

namespace {

// Long enough for a first login and a small file, short enough that an
// unanswered server does not hang the command line.
constexpr long kConnectTimeoutSeconds = 15;

size_t writeToFile(char* data, size_t size, size_t count, void* writer)
{
    const size_t bytes = size * count;
    auto* file = static_cast<Kora::AtomicFileWriter*>(writer);
    return file->write(std::string_view(data, bytes)) ? bytes : 0;
}

// The file name at the end of the URL's path ("download" when it has none).
std::string fileNameOf(const std::string& url)
{
    const size_t slash = url.find_last_of('/');
    std::string name = slash == std::string::npos ? std::string() : url.substr(slash + 1);
    if (const size_t query = name.find_first_of(";?"); query != std::string::npos) name.resize(query);
    if (char* decoded = curl_unescape(name.c_str(), static_cast<int>(name.size()))) {
        name = decoded;
        curl_free(decoded);
    }
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos) name = "download";
    return name;
}

std::optional<fs::path> makePrivateFolder()
{
    std::string pattern = (fs::temp_directory_path() / "kora-ftp-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return std::nullopt;
    return fs::path(pattern);
}

}  // namespace

bool isFtpPath(const KoString& path) { return path.left(6).equalsNoCase(L"ftp://"); }

bool ftpToLocal(const KoString& url, KoString& localPath)
{
    if (!isFtpPath(url)) return false;
    const std::string address = url.toUtf8();
    const std::optional<fs::path> folder = makePrivateFolder();
    if (!folder) return false;
    const fs::path target = *folder / fileNameOf(address);

    bool fetched = false;
    if (auto writer = Kora::AtomicFileWriter::create(target)) {
        if (CURL* curl = curl_easy_init()) {
            curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
            curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeToFile);
            curl_easy_setopt(curl, CURLOPT_WRITEDATA, &*writer);
            curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
            curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
            curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "ftp");
            fetched = curl_easy_perform(curl) == CURLE_OK;
            curl_easy_cleanup(curl);
        }
        fetched = fetched && writer->commit().has_value();
    }
    if (!fetched) {
        std::error_code ignored;
        fs::remove_all(*folder, ignored);
        return false;
    }
    localPath = KoString::fromUtf8(target.string());
    return true;
}
