#pragma once
#include "base/string.h"

namespace media {

/// "audio", "video", "image", "text", ... by the extension of the file's name; else "other".
fn::String kindOfFile(const fn::String& path);

} // namespace media
