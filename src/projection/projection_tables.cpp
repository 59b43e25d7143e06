#include "projection/projection_tables.h"

#include <cmath>
#include <list>
#include <mutex>
#include <numbers>

namespace vexel {

namespace {

// The arctangent (1/256 radian) and sqrt tables do not depend on the width: built once.
struct UnitTables {
    std::vector<double> atanUnit;
    std::vector<uint32_t> sqrt;
};

const UnitTables& GetUnitTables() {
    static const UnitTables tables = [] {
        UnitTables t;
        t.atanUnit.resize(ProjectionTables::kEntries);
        t.sqrt.resize(ProjectionTables::kEntries);
        for (int32_t i = 0; i < 65536; ++i) {
            const double x = i / 65536.0;
            // Entry i is the angle whose tangent is a/b when a/(a+b) = i/65536.
            t.atanUnit[i] = 256.0 * std::atan(x / (1.0 - x));
            t.sqrt[i] = static_cast<uint32_t>(std::sqrt(1.0 + x * x) * 65536.0);
        }
        t.atanUnit[65536] = 128.0 * std::numbers::pi;
        t.sqrt[65536] = 92681;  // sqrt(2) * 65536, truncated
        return t;
    }();
    return tables;
}

std::shared_ptr<const ProjectionTables> BuildTables(int32_t sourceWidth) {
    const UnitTables& unit = GetUnitTables();
    auto tables = std::make_shared<ProjectionTables>();
    tables->sourceWidth = sourceWidth;
    tables->columnsPerRadian = sourceWidth / (2.0 * std::numbers::pi);
    tables->quarterTurn = static_cast<int32_t>(64LL * sourceWidth);
    tables->halfTurn = static_cast<int32_t>(128LL * sourceWidth);
    tables->atanUnitTable = unit.atanUnit;
    tables->sqrtTable = unit.sqrt;
    tables->atanTable.resize(ProjectionTables::kEntries);
    for (int32_t i = 0; i < ProjectionTables::kEntries; ++i) {
        tables->atanTable[i] =
            static_cast<int32_t>(tables->atanUnitTable[i] * tables->columnsPerRadian + 0.5);
    }
    return tables;
}

}  // namespace

std::shared_ptr<const ProjectionTables> GetProjectionTables(int32_t sourceWidth) {
    // A few recent widths are kept: a player sees one or two, and an unbounded cache would grow
    // with every odd size a host renders.
    constexpr size_t kKeep = 4;
    static std::mutex lock;
    static std::list<std::shared_ptr<const ProjectionTables>> recent;

    {
        std::lock_guard<std::mutex> guard(lock);
        for (auto it = recent.begin(); it != recent.end(); ++it) {
            if ((*it)->sourceWidth == sourceWidth) {
                recent.splice(recent.begin(), recent, it);
                return recent.front();
            }
        }
    }
    // Built outside the lock so renders of other widths are not held up; a race builds twice.
    auto tables = BuildTables(sourceWidth);
    std::lock_guard<std::mutex> guard(lock);
    for (const auto& t : recent) {
        if (t->sourceWidth == sourceWidth) return t;
    }
    recent.push_front(tables);
    if (recent.size() > kKeep) recent.pop_back();
    return tables;
}

}  // namespace vexel
