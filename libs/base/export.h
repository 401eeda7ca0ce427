#pragma once

/// Marks what a shared library offers. Everything else is hidden (see cmake/compiler.cmake).
#define FN_EXPORT __attribute__((visibility("default")))
