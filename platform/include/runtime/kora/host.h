// Host-side services of libkora: the command line that reads and runs
// commands, the host's own commands, scripts, and shutdown.
#pragma once

#include "kora/editorbackend.h"
#include "kora/status.h"

// Registers the host's own commands (group "KORA"): SETVAR, GETVAR,
// APPLOAD, APPUNLOAD, SCRIPT, HELP, QUIT. Safe to call more than once.
KORA_API void koraRegisterHostCommands();

// Asks "Command: " once through the current editor back end and runs what
// was typed: a command by local or global name ("_NAME" for global only),
// or a system variable name (asks for its new value). Enter does nothing.
// Answers false when the input has ended (the back end cancelled).
KORA_API bool koraProcessCommand();

// Runs one command by name as if typed at the "Command: " prompt. Answers
// false when no such command or variable exists.
KORA_API bool koraRunCommand(const wchar_t* name);

// Runs a script file: every command and reply in it, in order, as if typed;
// a space or a line end ends a reply (except where a prompt accepts
// spaces), "^C" cancels. Answers eFileNotFound/eFileAccessErr when the file
// cannot be read.
KORA_API Kora::ErrorStatus koraRunScript(const wchar_t* fileName);

// Runs the text of a script (as koraRunScript does with a file's text).
KORA_API void koraRunScriptText(const KoString& text);

// True once QUIT has run.
KORA_API bool koraQuitRequested();

// Unloads every module, newest first (the host does it before exiting).
KORA_API void koraUnloadAllModules();
