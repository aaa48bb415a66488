// The editor functions modules call: prompts, keywords, printed output,
// system variables, file search, text screen and help. Every call answers
// a host result code (KORTNORM, KORTNONE, KORTCAN, KORTERROR, ...).
#pragma once

#include <cstddef>
#include <cstdint>

#include "kora/export.h"
#include "kora/status.h"

// A value of a system variable (and, later, of other queries).
struct koresbuf {
    koresbuf* rbnext = nullptr;
    short restype = 0;  // a KoValueType
    union {
        double rreal;
        double rpoint[3];
        short rint;
        int32_t rlong;
        wchar_t* rstring;  // allocated by the host; koutRelRb frees it
    } resval{};
};

// Allocates a chain element of the given type (string values empty).
KORA_API koresbuf* koutNewRb(short type);
// Frees a chain built by the host or by koutNewRb, strings included.
KORA_API int koutRelRb(koresbuf* chain);

// koedInitGet flags: they apply to the next prompt only.
enum KoInitGetFlags : int {
    KORSG_NONULL = 1,  // Enter is not accepted; the prompt is asked again
    KORSG_NOZERO = 2,  // a zero value is not accepted
    KORSG_NONEG = 4,   // a negative value is not accepted
};

// Reads a string. cronly != 0 allows spaces (only Enter ends the input);
// otherwise a space ends it too. Enter gives KORTNORM with an empty text.
// A reply longer than bufLen - 1 is cut and answers KORTINPUTTRUNCATED.
KORA_API int koedGetString(int cronly, const wchar_t* prompt, wchar_t* result, size_t bufLen);

// Sets the keyword list (and flags) of the next koedGetKword. The list is
// written as the host writes it: local keywords, then "_" and the global
// keywords in the same order ("Bind Insert _Bind Insert"); without "_"
// each keyword is its own global name.
KORA_API int koedInitGet(int flags, const wchar_t* keywordList);

// Asks for a keyword. A reply matches a local keyword or, with a leading
// underscore, a global one, without regard to case; unambiguous
// abbreviations are accepted. The global keyword is returned. An invalid
// or ambiguous reply is reported and the prompt asked again. Enter
// answers KORTNONE (unless KORSG_NONULL), cancel KORTCAN.
KORA_API int koedGetKword(const wchar_t* prompt, wchar_t* result, size_t bufLen);

// Numeric and geometric input. Points are typed "x,y" or "x,y,z", or
// "@dx,dy[,dz]" relative to the base point (or the last point given);
// distances as a number or a second point; angles in degrees or as a
// second point (the answer is in radians). When koedInitGet set keywords,
// a keyword reply answers KORTKWORD and koedGetInput gives its global
// name. Invalid replies are reported and the prompt asked again. Enter
// answers KORTNONE, cancel KORTCAN. basePoint may be null.
KORA_API int koedGetPoint(const double* basePoint, const wchar_t* prompt, double result[3]);
KORA_API int koedGetDist(const double* basePoint, const wchar_t* prompt, double* result);
KORA_API int koedGetAngle(const double* basePoint, const wchar_t* prompt, double* result);
KORA_API int koedGetReal(const wchar_t* prompt, double* result);
KORA_API int koedGetInt(const wchar_t* prompt, int* result);
// The keyword of the last KORTKWORD answer.
KORA_API int koedGetInput(wchar_t* result, size_t bufLen);

// Prints text at the command line as it stands.
KORA_API int koedPrompt(const wchar_t* message);
// Prints a formatted text ("%s" takes a wide string).
KORA_API int koutPrintf(const wchar_t* format, ...);

// System variables. Unknown names and values of the wrong type or out of
// range answer KORTERROR. A short variable accepts KORTSHORT or KORTLONG.
KORA_API int koedGetVar(const wchar_t* name, koresbuf* result);
KORA_API int koedSetVar(const wchar_t* name, const koresbuf* value);

// Finds a file by name: as given when it exists (absolute or relative to
// the current folder), then in the current drawing's folder, then in the
// support folders (the user's support folder and KORA_SUPPORT_PATH).
KORA_API int koedFindFile(const wchar_t* fileName, wchar_t* result, size_t bufLen);

// Switches to the text screen (the console host is always there).
KORA_API int koedTextScr();

// Shows help: a help file and topic. Answers KORTERROR when there is none.
// The help handler decides how help is shown; without one the editor back
// end is asked.
KORA_API int koedHelp(const wchar_t* helpFile, const wchar_t* topic, int command);

// Replaces how help is shown (the dialog kit installs its help viewer): the
// handler answers false when it could not show the topic. Answers the
// previous handler; an empty one gives help back to the editor back end.
using KoHelpHandler = bool (*)(const wchar_t* helpFile, const wchar_t* topic);
KORA_API KoHelpHandler koraSetHelpHandler(KoHelpHandler handler);
