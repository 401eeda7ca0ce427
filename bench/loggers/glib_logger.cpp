// GLib's structured logging. It has no files: a writer of ours formats with its help and appends to one that only grows.
#define G_LOG_DOMAIN "bench"
#define G_LOG_USE_STRUCTURED
#include "driver/log_load.h"
#include <cstring>
#include <fcntl.h>
#include <glib.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

GLogWriterOutput writeLine(GLogLevelFlags level, const GLogField* fields, gsize count, gpointer file)
{
    if (level > G_LOG_LEVEL_INFO) return G_LOG_WRITER_HANDLED;
    char* text = g_log_writer_format_fields(level, fields, count, FALSE);
    char end[] = "\n";
    const iovec line[] = { { text, std::strlen(text) }, { end, 1 } };
    if (::writev(GPOINTER_TO_INT(file), line, 2) != static_cast<ssize_t>(line[0].iov_len + 1)) bench::fail("write");
    g_free(text);
    return G_LOG_WRITER_HANDLED;
}

} // namespace

int main(int argc, char** argv)
{
    bench::LogLoad load(bench::Options(argc, argv));
    const int file = ::open((load.folder() / "bench.log").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) bench::fail("no log file");
    g_log_set_writer_func(writeLine, GINT_TO_POINTER(file), nullptr);
    bench::announceReady();
    if (load.suppressed()) {
        load.run([](unsigned thread, std::uint64_t number) { g_debug(BENCH_LOG_PRINTF_FORMAT, thread, number); });
    } else {
        load.run([](unsigned thread, std::uint64_t number) { g_info(BENCH_LOG_PRINTF_FORMAT, thread, number); });
    }
}
