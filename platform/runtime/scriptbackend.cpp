#include "scriptbackend.h"

namespace Kora::Runtime {

std::optional<KoString> ScriptBackend::readReply(const KoString& prompt, bool spacesAllowed)
{
    print(prompt);
    if (atEnd()) return std::nullopt;
    const size_t start = m_pos;
    while (m_pos < m_text.size() && m_text[m_pos] != L'\n' && (spacesAllowed || m_text[m_pos] != L' ')) ++m_pos;
    std::wstring reply = m_text.substr(start, m_pos - start);
    if (!reply.empty() && reply.back() == L'\r') reply.pop_back();
    if (m_pos < m_text.size()) ++m_pos;  // the space or line end that ended the reply
    if (reply == L"^C") {
        print(L"*Cancel*");
        return std::nullopt;
    }
    print(reply);
    return KoString(std::move(reply));
}

void ScriptBackend::print(const KoString& text)
{
    if (m_echo) m_echo->print(text);
}

}  // namespace Kora::Runtime
