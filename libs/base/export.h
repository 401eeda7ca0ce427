#pragma once

/// Marks a symbol that a shared library offers. All other symbols are hidden (see cmake/compiler.cmake).
#define FN_EXPORT __attribute__((visibility("default")))
