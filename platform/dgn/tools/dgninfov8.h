// dgninfo's V8 half: what a V8 file holds, model by model.
#pragma once

// Prints the file; the exit status of dgninfo.
int printV8File(const char* path, bool raw);
