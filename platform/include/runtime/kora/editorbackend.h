// Where the editor functions read and write: the console (a terminal or a
// script file), or a test editor with queued replies. The host installs
// one; libkora's editor functions go through it.
#pragma once

#include <optional>

#include "kora/kostring.h"

class KORA_API KoEditorBackend {
public:
    virtual ~KoEditorBackend();
    // Shows `prompt` and reads one reply. With spacesAllowed false a space
    // ends the reply as Enter does (script files rely on that). No value
    // means the user cancelled (or the input ended).
    virtual std::optional<KoString> readReply(const KoString& prompt, bool spacesAllowed) = 0;
    // Prints text as it stands.
    virtual void print(const KoString& text) = 0;
    virtual void showTextScreen() {}
    // Answers false when no help can be shown.
    virtual bool showHelp(const KoString& file, const KoString& topic)
    {
        (void)file;
        (void)topic;
        return false;
    }
};

// Installs a back end (not owned) and answers the previous one.
KORA_API KoEditorBackend* koraSetEditorBackend(KoEditorBackend* backend);
KORA_API KoEditorBackend* koraEditorBackend();

// The folder of the current drawing, asked by koedFindFile; the document
// manager installs the source.
using KoDrawingFolderFn = KoString (*)();
KORA_API void koraSetDrawingFolderSource(KoDrawingFolderFn source);
