// The test editor: an editor back end with queued replies that records the
// whole dialogue, so a command flow reads as one test. It installs itself
// for its lifetime, and when it goes it checks that no database object was
// left open.
#pragma once

#include <deque>
#include <optional>
#include <vector>

#include "kora/editorbackend.h"

class TestEditor final : public KoEditorBackend {
public:
    TestEditor();
    ~TestEditor() override;

    // Queues a reply; cancel() queues an Escape.
    TestEditor& reply(const KoString& text);
    TestEditor& cancel();

    // The prompts asked, in order.
    const std::vector<KoString>& prompts() const { return m_prompts; }
    // Everything shown, prompts with their replies and printed text, as a
    // terminal would show it.
    const KoString& transcript() const { return m_transcript; }
    // Prompts asked after the queue ran dry (answered with a cancel).
    int unansweredPrompts() const { return m_unanswered; }

    std::optional<KoString> readReply(const KoString& prompt, bool spacesAllowed) override;
    void print(const KoString& text) override;

private:
    std::deque<std::optional<KoString>> m_replies;
    std::vector<KoString> m_prompts;
    KoString m_transcript;
    int m_unanswered = 0;
    KoEditorBackend* m_previous;
};
