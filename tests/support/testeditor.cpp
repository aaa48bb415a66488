#include "testeditor.h"

#include <gtest/gtest.h>

#include "kora/db/object.h"

TestEditor::TestEditor() : m_previous(koraSetEditorBackend(this)) {}

TestEditor::~TestEditor()
{
    koraSetEditorBackend(m_previous);
    // Every command a test drives must close what it opened.
    EXPECT_EQ(kodbOpenObjectCount(), 0) << "database objects were left open; the dialogue was:\n" << m_transcript.toUtf8();
}

TestEditor& TestEditor::reply(const KoString& text)
{
    m_replies.emplace_back(text);
    return *this;
}

TestEditor& TestEditor::cancel()
{
    m_replies.emplace_back(std::nullopt);
    return *this;
}

std::optional<KoString> TestEditor::readReply(const KoString& prompt, bool spacesAllowed)
{
    m_prompts.push_back(prompt);
    m_transcript += prompt;
    if (m_replies.empty()) {
        ++m_unanswered;
        m_transcript += L"*Cancel*";
        return std::nullopt;
    }
    std::optional<KoString> reply = m_replies.front();
    m_replies.pop_front();
    if (!reply) {
        m_transcript += L"*Cancel*";
        return reply;
    }
    // A reply typed at a prompt that takes no spaces ends at the first
    // space, as it would at the keyboard.
    if (!spacesAllowed && reply->find(L' ') != KoString::npos) *reply = reply->left(reply->find(L' '));
    m_transcript += *reply;
    return reply;
}

void TestEditor::print(const KoString& text) { m_transcript += text; }
