// An editor back end that takes replies from a script file and shows the
// dialogue (prompts with the replies) through the back end it replaced.
#pragma once

#include <string>

#include "kora/editorbackend.h"

namespace Kora::Runtime {

class ScriptBackend final : public KoEditorBackend {
public:
    ScriptBackend(std::wstring text, KoEditorBackend* echo) : m_text(std::move(text)), m_echo(echo) {}
    std::optional<KoString> readReply(const KoString& prompt, bool spacesAllowed) override;
    void print(const KoString& text) override;
    bool atEnd() const { return m_pos >= m_text.size(); }

private:
    std::wstring m_text;
    size_t m_pos = 0;
    KoEditorBackend* m_echo;
};

}  // namespace Kora::Runtime
