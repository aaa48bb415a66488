// Symbol visibility of the host library and of loadable modules.
#pragma once

// Every public function and class of libkora is marked KORA_API; everything
// else in the library stays hidden.
#define KORA_API __attribute__((visibility("default")))

// Entry points that a module exports to the host use C linkage so the loader
// can find them by their plain names.
#define KORX_EXPORT extern "C" __attribute__((visibility("default")))
