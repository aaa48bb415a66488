#include "dxftagreader.h"

#include <cstring>
#include <utility>

#include "dxfcodes.h"

namespace Kora::Dxf {

namespace {
constexpr size_t kChunk = 1 << 20;

// Nearly every group code is a few plain digits; anything else (a sign, a
// decimal point, an exponent) takes the general number parser.
bool plainCode(std::string_view t, int64_t& code)
{
    if (t.empty() || t.size() > 4) return false;
    int64_t c = 0;
    for (const char ch : t) {
        if (ch < '0' || ch > '9') return false;
        c = c * 10 + (ch - '0');
    }
    code = c;
    return true;
}
}  // namespace

TagReader::TagReader(std::string_view memory) : m_data(memory.data()), m_end(memory.size()), m_eof(true) {}

TagReader::TagReader(File file) : m_file(std::move(file)), m_buffer(kChunk)
{
    m_data = m_buffer.data();
}

bool TagReader::fill()
{
    if (m_eof) return false;
    // Keep the unread rest, then read behind it; a line longer than the
    // buffer grows it.
    const size_t rest = m_end - m_pos;
    if (m_pos > 0) std::memmove(m_buffer.data(), m_buffer.data() + m_pos, rest);
    m_pos = 0;
    m_end = rest;
    if (m_end == m_buffer.size()) m_buffer.resize(m_buffer.size() * 2);
    m_data = m_buffer.data();
    const size_t n = std::fread(m_buffer.data() + m_end, 1, m_buffer.size() - m_end, m_file.get());
    m_end += n;
    if (n == 0) m_eof = true;
    return n > 0;
}

bool TagReader::readLine(std::string_view& out)
{
    for (;;) {
        const void* nl = std::memchr(m_data + m_pos, '\n', m_end - m_pos);
        if (nl) {
            const size_t at = static_cast<const char*>(nl) - m_data;
            out = std::string_view(m_data + m_pos, at - m_pos);
            m_pos = at + 1;
            break;
        }
        if (!fill()) {
            if (m_pos == m_end) return false;
            // Last line without a newline.
            out = std::string_view(m_data + m_pos, m_end - m_pos);
            m_pos = m_end;
            break;
        }
    }
    ++m_line;
    if (!out.empty() && out.back() == '\r') out.remove_suffix(1);
    return true;
}

bool TagReader::next(int& code, std::string_view& value)
{
    if (m_pushedBack) {
        m_pushedBack = false;
        code = m_lastCode;
        value = m_lastValue;
        return true;
    }
    std::string_view codeText;
    if (!readLine(codeText)) {
        m_atEnd = true;
        return false;
    }
    m_tagLine = m_line;
    const std::string_view t = trimmed(codeText);
    int64_t c = 0;
    if (!plainCode(t, c) &&
        (t.empty() || !parseInt(t, c) || t.find('.') != std::string_view::npos || c < -32768 || c > 32767)) {
        m_error = "a group code was expected, found \"" + std::string(t.substr(0, 40)) + "\"";
        return false;
    }
    code = static_cast<int>(c);
    if (valueKind(code) == ValueKind::Invalid) {
        m_error = "invalid group code " + std::to_string(code);
        return false;
    }
    if (!readLine(value)) {
        m_error = "the file ends after group code " + std::to_string(code) + " without its value";
        m_errorCode = ReadCode::kTruncated;
        return false;
    }
    m_lastCode = code;
    return true;
}

void TagReader::pushBack(std::string_view value)
{
    m_lastValue.assign(value);
    m_pushedBack = true;
}

}  // namespace Kora::Dxf
