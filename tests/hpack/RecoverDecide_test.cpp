#include "hpack/RecoverDecide.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace vantry_internal;

namespace {

/// Records as text: "START-END KEY FLAGS [AGE]", one per semicolon. Flags: L listed, R listed under
/// another key, A anchored, m ends at a marker, k markers in its key, e embedded, s suspect.
std::vector<RecoverCandidate> Parse(const char* text) {
    std::vector<RecoverCandidate> candidates;
    std::istringstream records(text);
    for (std::string record; std::getline(records, record, ';');) {
        std::istringstream fields(record);
        RecoverCandidate& candidate = candidates.emplace_back();
        std::uint32_t end = 0;
        char dash = 0;
        char key = 0;
        std::string flags;
        fields >> candidate.offset >> dash >> end >> key >> flags;
        candidate.bodyLength = end - candidate.offset - HpackFormat::recordOverhead;
        candidate.key = static_cast<std::uint32_t>(key);
        candidate.age = candidate.offset;
        fields >> candidate.age;
        if (!fields) {
            candidate.age = candidate.offset;
        }
        const auto has = [&](char flag) { return flags.find(flag) != std::string::npos; };
        candidate.entry = has('L') || has('R') ? 2 + candidate.offset : 0;
        candidate.renamed = has('R');
        candidate.anchored = has('A');
        candidate.endsAtMark = has('m');
        candidate.marksInKey = has('k');
        candidate.embedded = has('e');
        candidate.suspect = has('s');
    }
    return candidates;
}

/// The confidence and verdict of each candidate, then the remarks: "sound taken, ...; 20 cut".
std::string Decide(const RecoverLayout& layout, const char* records, const char* missingKeys,
                   bool unlisted) {
    static constexpr const char* confidences[] = {"none",   "embedded", "doubtful",
                                                  "likely", "sound",    "listed"};
    static constexpr const char* verdicts[] = {"ignored",    "taken",    "aside",
                                               "superseded", "unlisted", "crowded"};
    std::vector<RecoverCandidate> candidates = Parse(records);
    std::vector<MissingRecord> missing;
    for (const char* key = missingKeys; *key != '\0'; ++key) {
        missing.push_back({static_cast<std::uint32_t>(*key), 0});
    }
    Poll poll;
    WeighCandidates(candidates, layout, poll);
    std::string text;
    const std::vector<RecoverRemark> remarks =
        DecideCandidates(candidates, missing, layout, unlisted, poll);
    for (const RecoverCandidate& candidate : candidates) {
        text += std::string(text.empty() ? "" : ", ") +
                confidences[static_cast<int>(candidate.confidence)] + ' ' +
                verdicts[static_cast<int>(candidate.verdict)];
    }
    for (const RecoverRemark& remark : remarks) {
        const bool lost = remark.kind == HpackRecoverNote::lost;
        text += "; " + std::to_string(lost ? missing[remark.number].key
                                           : candidates[remark.number].offset);
        text += std::string(" ") + std::to_string(remark.kind);
    }
    return text;
}

constexpr auto none = HpackRecoverReport::none;
constexpr auto damaged = HpackRecoverReport::damaged;
constexpr auto displaced = HpackRecoverReport::displaced;
constexpr auto good = HpackRecoverReport::good;

// Numbers of notes: 0 lost, 3 older, 4 doubtful, 5 crowded, 6 unlisted, 7 renamed, 8 set aside.
// The stream has 1000 bytes. Unless there is none, the index is at 900 to 1000.
TEST(RecoverDecide, EachRule) {
    const struct {
        const char* what;
        HpackRecoverReport::Index state;
        const char* records;
        const char* expected;
        const char* missing = "";
        bool unlisted = false;
    } cases[] = {
        // Weighing.
        {"a chain from the header", none, "16-50 a m;50-80 b m;80-1000 c -",
         "sound taken, sound taken, sound taken"},
        {"after a gap", none, "16-50 a m;60-1000 b m", "sound taken, likely taken"},
        {"shortened in place", none, "16-50 a -;60-1000 b m", "sound taken, likely taken"},
        {"shortened, the next starts at its end", none, "16-50 a -;50-1000 b m",
         "sound taken, likely taken"},
        {"ends nowhere, holds a record", none, "16-50 a -;40-1000 b m",
         "doubtful taken, likely taken; 16 4"},
        {"in a sound record", none, "16-1000 a m;40-80 b m", "sound taken, doubtful taken; 40 4"},
        {"in a likely record", none, "20-1000 a m;40-80 b m", "likely taken, doubtful taken; 40 4"},
        {"of a package in a sound record", none, "16-1000 a m;40-80 b me",
         "sound taken, none ignored"},
        {"of a package, its record lost", none, "40-80 b me", "embedded taken; 40 4"},
        {"after a package", none, "40-80 b ms", "embedded taken; 40 4"},
        {"after a package, but at a boundary", none, "16-40 a m;40-80 b ms;80-1000 c m",
         "sound taken, likely taken, likely taken"},
        {"at a boundary, but of a package", none, "16-40 a m;40-80 b me",
         "sound taken, likely taken"},
        {"a marker in the key", none, "20-1000 a mk", "doubtful taken; 20 4"},
        {"a marker in the key, from a boundary", none, "16-1000 a mk", "sound taken"},
        {"into an anchored one", none, "16-60 a m;50-80 b mA", "doubtful taken, sound taken; 16 4"},
        {"into a listed one", damaged, "16-60 a m;50-80 b mL",
         "doubtful taken, listed taken; 16 4"},
        {"listed, up to the next", good, "16-50 a mL;50-80 b mL", "listed taken, listed taken"},
        {"listed, into the next", good, "16-51 a mL;50-80 b mL",
         "listed taken, listed taken; 16 4"},
        {"listed, into the index", good, "16-901 a -L", "listed taken; 16 4"},
        {"listed, up to the index", good, "16-900 a -L", "listed taken"},
        {"listed, over the header", good, "8-30 a -L", "listed taken; 8 4"},
        {"unlisted, over the header", none, "8-30 a m", "none ignored"},
        {"in a listed record", good, "16-90 a mL;40-80 b m", "listed taken, none ignored", "",
         true},
        {"in a listed record, index damaged", damaged, "16-90 a mL;40-80 b m",
         "listed taken, doubtful taken; 40 4"},
        {"in a listed record, after the horizon", displaced, "160-290 a mL;240-280 b m",
         "listed taken, doubtful taken; 240 4"},
        {"after a listed record", damaged, "16-90 a mL;90-120 b m", "listed taken, sound taken"},
        // Deciding.
        {"the later of two", none, "16-50 a m;50-1000 a m", "sound superseded, sound taken"},
        {"renamed in place later", none, "16-50 a m 700;50-1000 a m",
         "sound taken, sound superseded"},
        {"shortened in place, maybe later", none, "16-40 a -;50-1000 a mA",
         "sound aside, sound taken; 16 8"},
        {"a likely one later", none, "16-50 a m;60-1000 a m", "sound aside, likely taken; 16 8"},
        {"a doubtful one later", none, "16-50 a m;50-1000 b m;60-90 a m",
         "sound taken, sound taken, doubtful aside; 60 8"},
        {"a doubtful one earlier", none, "16-50 b m;20-40 a m;50-1000 a m",
         "sound taken, doubtful superseded, sound taken"},
        {"doubtful ones only", none, "16-1000 b m;40-80 a m;90-120 a m",
         "sound taken, doubtful aside, doubtful taken; 90 4; 40 8"},
        {"unlisted", good, "16-50 a m", "sound unlisted; 16 6"},
        {"unlisted, wanted", good, "16-50 a m", "sound taken; 16 6", "", true},
        {"unlisted versions", good, "16-50 a m;50-90 a m", "sound unlisted, sound unlisted; 50 6"},
        {"unlisted versions, wanted", good, "16-50 a m;50-900 a m",
         "sound superseded, sound taken; 50 6", "", true},
        {"listed, a later one never saved", good, "16-50 a mL;50-90 a m",
         "listed taken, sound superseded"},
        {"lost", good, "", "; 97 0", "a"},
        {"lost, an older version", good, "16-50 a m", "sound taken; 16 3", "a"},
        {"renamed after the save", good, "16-50 a R", "sound taken; 16 7; 98 0", "b"},
        {"renamed over a listed key", good, "16-50 a -R;50-80 a mL",
         "sound aside, listed taken; 16 8; 98 0", "b"},
        {"renamed, a dead version later", good, "16-50 a mR;50-90 a m",
         "sound taken, sound unlisted; 16 7"},
        {"displaced, before the horizon", displaced, "16-50 a mL;50-90 a m;90-120 b m",
         "listed taken, sound superseded, sound unlisted; 90 6"},
        {"displaced, after the horizon", displaced, "16-50 a mL;250-300 a mA;300-340 b m",
         "listed superseded, sound taken, sound taken"},
        {"displaced, likely after the horizon", displaced, "16-50 a mL;250-300 a m",
         "listed aside, likely taken; 16 8"},
        {"damaged, a version after the listed one", damaged, "16-50 a mL;50-90 a m",
         "listed taken, sound aside; 50 8"},
        {"damaged, entries with equal keys", damaged, "16-50 a mL;50-90 a mL",
         "listed superseded, listed taken"},
    };
    for (const auto& [what, state, records, expected, missing, unlisted] : cases) {
        RecoverLayout layout;
        layout.state = state;
        layout.size = 1000;
        layout.headerSize = 16;
        layout.index = state == none ? RecoverExtent() : RecoverExtent(900, 1000);
        layout.horizon = state == none ? 0 : 200;
        EXPECT_EQ(Decide(layout, records, missing, unlisted), expected) << what;
    }
}

// A sound record stays. Of doubtful ones that lie in no other and of those that do, short ones
// stay.
TEST(RecoverDecide, OverlapsAreLimited) {
    RecoverLayout layout;
    layout.size = 100000;
    layout.headerSize = 16;
    std::string records = "16-100000 a m";
    for (int i = 1; i <= 6; ++i) {
        records += ";" + std::to_string(100 * i) + "-90000 b m";
    }
    EXPECT_EQ(Decide(layout, (records + ";800-900 c m").c_str(), "", false),
              "sound taken, doubtful aside, doubtful crowded, doubtful crowded, "
              "doubtful crowded, doubtful aside, doubtful taken, doubtful taken; "
              "200 5; 300 5; 400 5; 600 4; 100 8; 500 8; 800 4");
}

}  // namespace
