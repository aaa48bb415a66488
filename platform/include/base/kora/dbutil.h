// Small text utilities the host's commands share.
#pragma once

#include <vector>

#include "kora/export.h"
#include "kora/kostring.h"

class KORA_API KxDbUtil {
public:
    // Splits `text` at `separator` into its parts, each trimmed of blanks.
    // False, with `parts` emptied, when the text or any part is empty
    // ("a,,b", "a," or ""): a list the user typed with a name missing.
    static bool SplitString(const KoString& text, wchar_t separator, std::vector<KoString>& parts);
};
