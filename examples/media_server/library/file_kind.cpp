#include "library/file_kind.h"
#include "foundation/io/path.h"
#include <map>
#include <sstream>

namespace media {
namespace {

struct Kind {
    const char* name;
    const char* extensions;
};

constexpr Kind kinds[] = {
    { "audio", "aac aif aiff ape flac m4a m4b mid midi mka mp2 mp3 oga ogg opus wav wma" },
    { "video", "3gp avi flv m2ts m4v mkv mov mp4 mpeg mpg ogv ts vob webm wmv" },
    { "image", "avif bmp gif heic ico jpeg jpg pcx png ppm svg svgz tga tif tiff webp xcf xpm" },
    { "text", "asc cfg conf css csv htm html ini js json log md rst srt sub tex txt xml yaml yml" },
    { "document", "doc docx epub mobi odp ods odt pdf ppt pptx ps rtf xls xlsx" },
    { "archive", "7z bz2 cab deb gz iso jar lz4 lzma rar rpm tar tgz xz zip zst" },
    { "font", "afm otf pcf pfb ttc ttf woff woff2" },
};

const std::map<std::string, const char*, std::less<>>& kindsByExtension()
{
    static const auto table = [] {
        std::map<std::string, const char*, std::less<>> result;
        for (const auto& kind : kinds) {
            std::istringstream extensions(kind.extensions);
            for (std::string extension; extensions >> extension;) result.emplace(extension, kind.name);
        }
        return result;
    }();
    return table;
}

} // namespace

fn::String kindOfFile(const fn::String& path)
{
    const auto name = fn::Path::parsePath(path).fileName.toLowerCase();
    const auto dot = name.view().rfind('.');
    if (dot == std::string_view::npos || dot == 0) return "other"; // A name that begins with its only dot has none.
    const auto found = kindsByExtension().find(name.view().substr(dot + 1));
    return found == kindsByExtension().end() ? "other" : found->second;
}

} // namespace media
