#pragma once
#include <cstddef>

/// Bounds on what one peer makes the inspector service hold, and on what an inspector of the object system shows at once.
/// Peers never exchange them.
namespace core::limits {

/// Inspectors that one worker, and that all of them, may have registered. The list of all, names included, fits one answer.
inline constexpr std::size_t inspectorsOfWorker = 10'000;
inline constexpr std::size_t inspectors = 100'000;
inline constexpr std::size_t inspectorNameBytes = 1024;

/// Lines of a list in one result. The line "More ..." leads to the rest.
inline constexpr std::size_t inspectorLines = 500;

} // namespace core::limits
