#pragma once
#include "core/ipc/interface/method.h"

struct Thumbnail {
    int width = 0; // Pixels.
    int height = 0;
    fn::ByteArray pixels; // Row by row, one byte each; 0 is black.
};
FN_FIELDS(Thumbnail, width, height, pixels) // It travels as a map of these.

/// Makes small pictures of large ones. It reads foreign files, therefore it has a process of its own: a crash is only a relaunch.
struct Decoder : ipc::Interface<Decoder> {
    static constexpr auto timeLimit = fn::Duration::seconds(20); // Of each call that has none of its own.

    ipc::Method<Thumbnail(fn::String path, int longestSide), ipc::Repeatable> shrink;
    IPC_MEMBERS(shrink)
};
