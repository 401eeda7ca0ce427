#pragma once
#include "core/ipc/interface/property.h"
#include "decoder.h"

/// Keeps thumbnails beside the pictures that they were made of, and has those made that are missing.
struct Cache : ipc::Interface<Cache> {
    ipc::Method<Thumbnail(fn::String path), ipc::Repeatable> thumbnail;
    ipc::Property<int> made; // How many were missing.
    IPC_MEMBERS(thumbnail, made)
};
