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

    size_t tableSize(const std::string& name) const {
        auto i = tables.find(name);
        return i == tables.end() ? 0 : i->second;
    }

    // One line per table or class whose count changed, "" when none did.
    static std::string differences(const InternSnapshot& a, const InternSnapshot& b) {
        std::string out;
        std::set<std::string> names;
        for (const auto& [n, v] : a.tables)
            names.insert(n);
        for (const auto& [n, v] : b.tables)
            names.insert(n);
        for (const std::string& n : names)
            if (a.tableSize(n) != b.tableSize(n))
                out += "table " + n + ": " + std::to_string(a.tableSize(n)) + " -> " +
                       std::to_string(b.tableSize(n)) + "\n";
        std::set<std::string> classes;
        for (const auto& [n, v] : a.objects)
            classes.insert(n);
        for (const auto& [n, v] : b.objects)
            classes.insert(n);
        auto count = [](const InternSnapshot& s, const std::string& n) {
            auto i = s.objects.find(n);
            return i == s.objects.end() ? int64_t(0) : i->second;
        };
        for (const std::string& n : classes)
            if (count(a, n) != count(b, n))
                out += "store " + n + ": " + std::to_string(count(a, n)) + " -> " +
                       std::to_string(count(b, n)) + " live objects\n";
        if (a.liveObjects != b.liveObjects)
            out += "store blocks: " + std::to_string(a.liveObjects) + " -> " +
                   std::to_string(b.liveObjects) + "\n";
        return out;
    }
};

} // namespace OrvTest
