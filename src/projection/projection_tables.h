// Lookup tables of the view projector. They depend only on the source width, so one set per width
// is built and shared by every projector of that width.
//
// Threads: GetProjectionTables may be called from any thread; the returned tables are immutable.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vexel {

struct ProjectionTables {
    static constexpr int32_t kEntries = 65537;  // index t * 65536 for t in [0, 1]

    int32_t sourceWidth = 0;
    double columnsPerRadian = 0.0;      // sourceWidth / 2pi
    int32_t quarterTurn = 0;            // 90 degrees in 1/256 columns
    int32_t halfTurn = 0;               // 180 degrees in 1/256 columns
    std::vector<int32_t> atanTable;     // arctangent in 1/256 source columns
    std::vector<uint32_t> sqrtTable;    // sqrt(1 + t^2) with 16 fraction bits
    std::vector<double> atanUnitTable;  // arctangent in 1/256 radian
};

std::shared_ptr<const ProjectionTables> GetProjectionTables(int32_t sourceWidth);

}  // namespace vexel
