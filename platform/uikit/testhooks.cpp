#include "kora/ui/testhooks.h"

#include <deque>

#include "uikitqt.h"

namespace Kora::Ui::Test {

namespace {

struct Hooks {
    std::deque<int> messageBoxAnswers;
    std::vector<MessageBoxAsked> messageBoxes;
    std::deque<FileDialogAnswer> fileAnswers;
    std::vector<FileDialogAsked> fileDialogs;
    std::deque<int> menuAnswers;
    bool recordingHelp = false;
    std::vector<KoString> helpPages;
};

Hooks& hooks()
{
    static Hooks h;
    return h;
}

template <class T>
std::optional<T> takeFront(std::deque<T>& queue)
{
    if (queue.empty()) return std::nullopt;
    T front = std::move(queue.front());
    queue.pop_front();
    return front;
}

}  // namespace

void queueMessageBoxAnswer(int answer) { hooks().messageBoxAnswers.push_back(answer); }
std::vector<MessageBoxAsked> messageBoxesAsked() { return hooks().messageBoxes; }
void queueFileDialogAnswer(const FileDialogAnswer& answer) { hooks().fileAnswers.push_back(answer); }
std::vector<FileDialogAsked> fileDialogsAsked() { return hooks().fileDialogs; }
void queueMenuAnswer(int command) { hooks().menuAnswers.push_back(command); }
void recordHelpPages(bool on) { hooks().recordingHelp = on; }
std::vector<KoString> helpPagesOpened() { return hooks().helpPages; }

void clear() { hooks() = Hooks{}; }

std::optional<int> takeMessageBoxAnswer(const MessageBoxAsked& asked)
{
    hooks().messageBoxes.push_back(asked);
    return takeFront(hooks().messageBoxAnswers);
}

std::optional<FileDialogAnswer> takeFileDialogAnswer(const FileDialogAsked& asked)
{
    hooks().fileDialogs.push_back(asked);
    return takeFront(hooks().fileAnswers);
}

std::optional<int> takeMenuAnswer(const std::vector<MenuItem>&) { return takeFront(hooks().menuAnswers); }

bool recordHelpPage(const KoString& page)
{
    if (!hooks().recordingHelp) return false;
    hooks().helpPages.push_back(page);
    return true;
}

}  // namespace Kora::Ui::Test
