// What is interned right now: entries per intern table (summed over tables of one name) and live
// objects per store class, to compare before and after a workload.
//   auto before = OrvTest::InternSnapshot::take();  work();
//   EXPECT_EQ(OrvTest::InternSnapshot::differences(before, OrvTest::InternSnapshot::take()), "");
#pragma once

#include "Keel/DedupTable.h"
#include "MelStash/StoreManager.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace OrvTest {

struct InternSnapshot {
    std::map<std::string, size_t> tables;   // table name -> entries
    std::map<std::string, int64_t> objects; // store class -> live objects
    int64_t liveObjects = 0;                // every block the store has handed out and not freed

    static InternSnapshot take() {
        InternSnapshot s;
        Keel::DedupTableBase::forEachTable(
            [&](const Keel::DedupTableBase& t) { s.tables[t.name()] += t.size(); });
        for (const MelStash::TypeStatsSnapshot& t : MelStash::StoreManager::typeStats())
            if (t.kind == MelStash::TypeStats::Kind::storeObject) s.objects[t.name] += t.objects;
        s.liveObjects = MelStash::StoreManager::instance().liveObjects();
        return s;
    }

    size_t tableSize(const std::string& name) const { return countOf(tables, name); }

    // One line per table or class whose count changed, "" when none did.
    static std::string differences(const InternSnapshot& a, const InternSnapshot& b) {
        std::string out;
        auto compare = [&](const auto& before, const auto& after, const std::string& kind,
                           const char* what) {
            std::set<std::string> names;
            for (const auto* counts : {&before, &after})
                for (const auto& [n, v] : *counts)
                    names.insert(n);
            for (const std::string& n : names)
                if (countOf(before, n) != countOf(after, n))
                    out += kind + n + ": " + std::to_string(countOf(before, n)) + " -> " +
                           std::to_string(countOf(after, n)) + what + "\n";
        };
        compare(a.tables, b.tables, "table ", "");
        compare(a.objects, b.objects, "store ", " live objects");
        compare(std::map<std::string, int64_t>{{"blocks", a.liveObjects}},
                std::map<std::string, int64_t>{{"blocks", b.liveObjects}}, "store ", "");
        return out;
    }

    template <class Map>
    static typename Map::mapped_type countOf(const Map& m, const std::string& name) {
        auto i = m.find(name);
        return i == m.end() ? 0 : i->second;
    }
};

} // namespace OrvTest
