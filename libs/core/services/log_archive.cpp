#include "core/services/log_archive.h"
#include "base/exceptions.h"
#include "base/utf8.h"
#include "core/services/app_info.h"
#include "foundation/io/directory_iterator.h"
#include "foundation/io/file.h"
#include "foundation/io/file_input_stream.h"
#include "foundation/io/stream_reader.h"
#include "foundation/logging/logging.h"
#include "foundation/system/path_manager.h"
#include "foundation/time/date_time_formatter.h"
#include <algorithm>
#include <array>
#include <cerrno>
#include <minizip/zip.h>
#include <set>
#include <unistd.h>

namespace core {
namespace {

constexpr int onlyItsUser = 0600;
constexpr int compressionLevel = 5;
constexpr std::size_t chunkBytes = 4096;
constexpr std::string_view partSuffix = ".part";

// A general purpose bit of the ZIP format. Names without it are read in some old code page.
constexpr uLong namedInUtf8 = 1 << 11;

FN_LOG_CATEGORY("core.logArchive");

/// The file that minizip writes. After its first failure, or when it is told to, it writes nothing and reports success, since
/// minizip frees everything only after success.
class ArchiveFile {
public:
    explicit ArchiveFile(const fn::String& path) : _descriptor(fn::FileDescriptor::write(path, onlyItsUser)) { }
    ArchiveFile(const ArchiveFile&) = delete;

    zlib_filefunc64_def functions();
    void stopWriting() { _isWriting = false; }
    const fn::String& path() const { return _descriptor.path(); }

    /// Throws the exception of the first failure.
    void check() const
    {
        if (_error) fn::File::handleErrno(path(), _error);
    }
    void close() { _descriptor.close(); }

private:
    void write(const char* data, std::size_t size);
    bool seek(std::uint64_t offset, int origin);

    fn::FileDescriptor _descriptor;
    std::uint64_t _position = 0;
    int _error = 0;
    bool _isWriting = true;
};

void ArchiveFile::write(const char* data, std::size_t size)
{
    while (_isWriting && size > 0) {
        const auto count = ::pwrite(_descriptor.get(), data, size, static_cast<off_t>(_position));
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) {
            _error = count < 0 ? errno : EIO;
            _isWriting = false;
            return;
        }
        _position += static_cast<std::uint64_t>(count);
        data += count;
        size -= static_cast<std::size_t>(count);
    }
}

bool ArchiveFile::seek(std::uint64_t offset, int origin)
{
    if (origin != ZLIB_FILEFUNC_SEEK_SET) return false; // minizip never does that in a new archive.
    _position = offset;
    return true;
}

zlib_filefunc64_def ArchiveFile::functions()
{
    zlib_filefunc64_def result = {};
    result.opaque = this;
    result.zopen64_file = [](voidpf self, const void*, int) -> voidpf { return self; };
    result.zread_file = [](voidpf, voidpf, void*, uLong) -> uLong { return 0; };
    result.zwrite_file = [](voidpf self, voidpf, const void* data, uLong size) -> uLong {
        static_cast<ArchiveFile*>(self)->write(static_cast<const char*>(data), size);
        return size;
    };
    result.ztell64_file = [](voidpf self, voidpf) -> ZPOS64_T { return static_cast<ArchiveFile*>(self)->_position; };
    result.zseek64_file = [](voidpf self, voidpf, ZPOS64_T offset, int origin) -> long {
        return static_cast<ArchiveFile*>(self)->seek(offset, origin) ? 0 : -1;
    };
    result.zclose_file = [](voidpf, voidpf) { return 0; };
    result.zerror_file = [](voidpf, voidpf) { return 0; };
    return result;
}

/// An archive that is being written. If it is not closed, its incomplete file stays.
class Archive {
public:
    explicit Archive(const fn::String& path);
    Archive(const Archive&) = delete;
    ~Archive();

    void add(const fn::String& memberName, fn::InputStream& content, std::uint64_t mostBytes);
    void close();

private:
    void check(int result) const;

    ArchiveFile _file;
    zipFile _zip;
};

Archive::Archive(const fn::String& path) : _file(path)
{
    auto functions = _file.functions();
    _zip = zipOpen2_64(path.c_str(), APPEND_STATUS_CREATE, nullptr, &functions);
    if (!_zip) check(ZIP_INTERNALERROR);
}

Archive::~Archive()
{
    if (!_zip) return;
    _file.stopWriting();
    zipClose(_zip, nullptr);
}

void Archive::check(int result) const
{
    _file.check();
    if (result == ZIP_OK) return;
    throw with(fn::FileException("The archive can not be written"), fn::PathInfo { _file.path() },
        fn::ErrorCodeInfo { result });
}

void Archive::add(const fn::String& memberName, fn::InputStream& content, std::uint64_t mostBytes)
{
    const zip_fileinfo noDateNorAttributes = {};
    const auto name = memberName.view();
    const bool isAscii = std::ranges::all_of(name, [](char byte) { return (byte & 0x80) == 0; });
    const auto flags = !isAscii && fn::isUTF8(name) ? namedInUtf8 : 0;
    check(zipOpenNewFileInZip4_64(_zip, memberName.c_str(), &noDateNorAttributes, nullptr, 0, nullptr, 0, nullptr,
        Z_DEFLATED, compressionLevel, 0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY, nullptr, 0, 0, flags, 0));
    std::array<std::uint8_t, chunkBytes> chunk;
    std::size_t count = 0;
    do {
        count = fn::StreamReader::tryRead(content, chunk.data(), chunk.size());
        check(zipWriteInFileInZip(_zip, chunk.data(), static_cast<unsigned>(count)));
    } while (count == chunk.size() && content.position() < mostBytes);
    check(zipCloseFileInZip(_zip));
}

void Archive::close()
{
    check(zipClose(std::exchange(_zip, nullptr), nullptr));
    _file.close();
}

void addLog(Archive& archive, const fn::DirectoryEntry& entry)
try {
    const auto size =
        fn::File(entry.path).info().size; // Before the open: the file opened can only be a newer, shorter one.
    fn::FileInputStream content(fn::FileDescriptor::readRegular(entry.path));
    archive.add(entry.name, content, size + LogArchive::mostGrowthBytes);
} catch (const fn::FileException& failure) {
    // The rotation has renamed the file since it was listed: its new name comes later.
    const auto* error = failure.find<fn::ErrnoInfo>();
    if (!error || *error != ENOENT || entry.kind != fn::FileKind::Regular) throw;
}

/// Meanwhile the rotation gives files higher numbers, in the order in which this adds them: a file that was renamed has a name
/// that comes later in the list, or a new one, which the next list has.
void addLogs(Archive& archive, const fn::String& folder)
{
    std::set<fn::String> added;
    for (int lists = 0; lists < LogArchive::mostLists; ++lists) {
        const auto before = added.size();
        for (const auto& entry : fn::DirectoryIterator(folder)) {
            if (added.insert(entry.name).second) addLog(archive, entry);
        }
        if (added.size() == before) return;
    }
    throw with(fn::FileException("New logs are made faster than they are packed"), fn::PathInfo { folder });
}

fn::String archiveName()
{
    auto stamp = fn::DateTimeFormatter::format(fn::LocalDateTime(), fn::DateTimeFormat::SORTABLE_FORMAT).toStdString();
    std::ranges::replace(stamp, ' ', '-');
    std::ranges::replace(stamp, ':', '-');
    return AppInfo::instance().applicationShortName() + "Logs-" + std::string_view(stamp) + ".zip";
}

fn::String writeArchive()
{
    const auto& paths = fn::PathManager::instance();
    const auto path = paths.getPath(fn::PathManager::DesktopFolder, archiveName(), false);
    const auto logs = paths.getPath(fn::PathManager::LogFolder, false);
    const auto part = path + partSuffix;
    Archive archive(part);
    addLogs(archive, logs);
    archive.close();
    fn::File(part).moveTo(path);
    return path;
}

} // namespace

fn::String LogArchive::createLogArchive()
{
    try {
        return writeArchive();
    } catch (const fn::Exception& exception) {
        FN_LOG(Error, "Unexpected exception while zipping and copying logs: {}", exception.what());
    } catch (...) {
        // Out of memory: the empty path says enough.
    }
    return {};
}

} // namespace core
