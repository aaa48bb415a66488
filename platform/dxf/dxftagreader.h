// Reads DXF text as (group code, value) pairs, from memory or from a file
// in chunks, counting lines for messages.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kora/dxf/dxf.h"

namespace Kora::Dxf {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// The reader of a section runs on a thread of its own while the thread that
// made it writes what lies beside it in memory; on cache lines of its own
// (two, as the cores fetch lines in pairs) it is not bounced between cores.
class alignas(128) TagReader {
public:
    explicit TagReader(std::string_view memory);
    // Reads the file from where it stands, and closes it at the end.
    explicit TagReader(File file);

    // The next tag; false at the end of the input or on a malformed tag
    // (then error() is set). The value stays valid until the next call.
    bool next(int& code, std::string_view& value);
    // Makes the tag just read, whose value is `value`, the next one again.
    void pushBack(std::string_view value);
    // Line of the group code of the tag just read.
    long line() const { return m_tagLine; }
    const std::string& error() const { return m_error; }
    ReadCode errorCode() const { return m_errorCode; }
    // True when the input ended cleanly between tags.
    bool atEnd() const { return m_atEnd; }

private:
    bool readLine(std::string_view& out);
    bool fill();

    File m_file;
    std::vector<char> m_buffer;
    const char* m_data = nullptr;
    size_t m_pos = 0, m_end = 0;
    bool m_eof = false;
    long m_line = 0, m_tagLine = 0;
    bool m_atEnd = false;
    std::string m_error;
    ReadCode m_errorCode = ReadCode::kMalformedTag;

    bool m_pushedBack = false;
    int m_lastCode = 0;
    std::string m_lastValue;  // a copy, only while pushed back
};

}  // namespace Kora::Dxf
