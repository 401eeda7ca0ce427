// What can break here: a stretch read from the wrong place, a size border off by one, a file that hashes as zeros because
// reading it failed.
#include "base/exceptions.h"
#include "core/services/resource_hash.h"
#include "support/temporary_folder.h"
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

std::string patterned(std::size_t size)
{
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + (i >> 8) * 13 + (i >> 16) * 101);
    return content;
}

TEST(ResourceHash, SamplesTheStatedStretchesAtEveryBorderOfSize)
{
    // Made with an independent program.
    const std::pair<std::size_t, const char*> rows[] = {
        { 0, "05fe405753166f125559e7c9ac558654f107c7e9" }, // Of eight zero bytes.
        { 327679, "38665a420a7ecaad81fa63d15658113edb50940a" }, // The largest that is read whole.
        { 327680, "f039acbd2e0dda5b186794e732435accaaeae975" },
        { 327684, "62e7d511c25e0ddde37fd070919ac77d66bc73f4" }, // The largest without a tail.
        { 327685, "83b99b0dbc50bb12ccb682574fcc20ea1b606117" },
        { 655355, "82317eb00c4968d430d2fc58f7ca82eeaa332374" }, // One byte less than the longest tail.
        { 1000003, "079cecb77e8f58281371d3d3e0dc48e7fe20f2a3" },
    };
    const test::TemporaryFolder folder;
    const auto path = folder.file("resource");
    for (const auto& [size, hash] : rows) {
        test::writeFile(path, patterned(size));
        EXPECT_EQ(core::ResourceHash::forFile(path), hash) << size;
    }
}

TEST(ResourceHash, RefusesWhatCanNotBeRead)
{
    const test::TemporaryFolder folder;
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0); // And does not wait for a writer.
    for (const auto* file : { "missing", ".", "pipe" })
        EXPECT_THROW(core::ResourceHash::forFile(folder.file(file)), fn::FileException) << file;
}

} // namespace
