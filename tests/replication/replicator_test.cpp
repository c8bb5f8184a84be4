#include "replication/replicator.h"

#include <gtest/gtest.h>

#include "contents/storage_queries.h"
#include "documents/document_merge.h"
#include "documents/document_queries.h"
#include "json/error.h"
#include "transformation/in_texts.h"

namespace libzentadbpp {
namespace {

using namespace in_texts;

// A storage with the one document "root", or with another beside it.
std::string text_of(const std::string& history, const std::string& contents = "", const std::string& beside = "") {
    return "{\"d\": {" + (beside.empty() ? "" : beside + ", ") + "\"root\": " + history + "}, \"o\": {" + contents +
           "}, \"r\": \"root\"}";
}

TEST(Replicate, CarriesOver) {
    const std::string contents = R"("A": {"v": 1}, "B": {"v": 2}, "C": {"v": 3})";
    const struct {
        std::string source;
        std::string target;
        std::string result;
    } cases[] = {
        {text_of(R"(["A_first", "B_A"])", contents), "{}",
         text_of(R"(["A_first", "B_A"])", R"("A": {"v": 1}, "B": {"v": 2})")},
        {"{}", "{}", "{}"},
        {text_of(R"(["A_first", "B_A"])", contents), text_of(R"(["A_first", "C_A"])", R"("C": {"v": 3})"),
         text_of(R"(["A_first", ["B_A", "C_A"]])", contents)},
        // Contents that the target dropped come back, and what it holds is kept.
        {text_of(R"(["A_first"])", R"("A": {"v": 1})"), text_of(R"(["A_first", "B_A"])", R"("B": {"v": 2})"),
         text_of(R"(["A_first", "B_A"])", R"("A": {"v": 1}, "B": {"v": 2})")},
        {text_of(R"(["A_first"])", R"("A": {"v": 1})"), text_of(R"(["A_first"])"),
         text_of(R"(["A_first"])", R"("A": {"v": 1})")},
        {text_of(R"(["A_first"])", R"("A": {"v": 9})"), text_of(R"(["A_first"])", R"("A": {"v": 1})"),
         text_of(R"(["A_first"])", R"("A": {"v": 1})")},
        {text_of(R"(["A_first", "deleted_A"])"), text_of(R"(["A_first"])"), text_of(R"(["A_first", "deleted_A"])")},
        // Two ways to one revision: the smaller parent stays, on both sides.
        {text_of(R"(["A_first", ["hhhhhhha_A", ["hhhhhhhb_A", "D_hhhhhhh"]]])"),
         text_of(R"(["A_first", [["hhhhhhha_A", "D_hhhhhhh"], "hhhhhhhb_A"]])"),
         text_of(R"(["A_first", [["hhhhhhha_A", "D_hhhhhhh"], "hhhhhhhb_A"]])")},
        // Each side closed the branch that the other kept: the longest, then lowest closed one is opened again.
        {text_of(R"(["A_first", [["B_A", "resolved_B"], "C_A"]])"),
         text_of(R"(["A_first", ["B_A", ["C_A", "resolved_C"]]])"),
         text_of(R"(["A_first", [["B_A", "resolved_B", "B_resolve"], ["C_A", "resolved_C"]]])")},
        // Two ordering documents of one id: the larger tree hangs under the smaller first revision.
        {text_of(R"(["A_first"])", "", R"("ord-1": ["K_first", "L_K"])"),
         text_of(R"(["A_first"])", "", R"("ord-1": ["M_first"])"),
         text_of(R"(["A_first"])", "", R"("ord-1": ["K_first", ["L_K", "M_first"]])")},
        // A third one, smaller still, takes both, each as if it came alone.
        {text_of(R"(["A_first"])", "", R"("ord-1": ["J_first", "M_J"])"),
         text_of(R"(["A_first"])", "", R"("ord-1": ["K_first", ["L_K", ["M_first", "N_M"]]])"),
         text_of(R"(["A_first"])", "", R"("ord-1": ["J_first", [["K_first", "L_K"], ["M_first", "N_M"], "M_J"]])")},
        {text_of(R"(["A_first"])", "", R"("ord-1": ["K_first", ["L_K", ["M_first", "O_M"]]])"),
         text_of(R"(["A_first"])", "", R"("ord-1": ["J_first", "M_first", "N_M"])"),
         text_of(R"(["A_first"])", "", R"("ord-1": ["J_first", [["K_first", "L_K"], ["M_first", ["N_M", "O_M"]]]])")},
        // What was only opened again goes where another branch is open or the longest closed one is another.
        {text_of(R"(["A_first", ["B_A", ["C_A", "D_C"]]])"),
         text_of(R"(["A_first", [["B_A", "resolved_B", "B_resolve"], ["C_A", "resolved_C"]]])"),
         text_of(R"(["A_first", [["B_A", "resolved_B"], ["C_A", ["D_C", "resolved_C"]]]])")},
        {text_of(R"(["A_first", ["B_A", ["C_A", "D_C", "resolved_D"]]])"),
         text_of(R"(["A_first", [["B_A", "resolved_B", "B_resolve"], ["C_A", "resolved_C"]]])"),
         text_of(
             R"(["A_first", [["B_A", "resolved_B"], ["C_A", [["D_C", "resolved_D", "D_resolve"], "resolved_C"]]]])")},
        // What was done on top of it stays, and so does another content and what nothing could take the place of.
        {text_of(R"(["A_first", ["B_A", ["C_A", "D_C"]]])"),
         text_of(R"(["A_first", [["B_A", "resolved_B", "B_resolve", "E_B"], ["C_A", "resolved_C"]]])"),
         text_of(R"(["A_first", [["B_A", "resolved_B", "B_resolve", "E_B"], ["C_A", ["D_C", "resolved_C"]]]])")},
        {text_of(R"(["A_first", "C_A"])"), text_of(R"(["A_first", "B_A", "resolved_B", "E_resolve"])"),
         text_of(R"(["A_first", [["B_A", "resolved_B", "E_resolve"], "C_A"]])")},
        {text_of(R"(["resolved_first", "resolved_resolve", "resolved_resolve", "resolved_resolve"])"),
         text_of(R"(["resolved_first", "B_resolve", "resolved_B", "B_resolve"])"),
         text_of(R"(["resolved_first", [["B_resolve", "resolved_B", "B_resolve"], )"
                 R"(["resolved_resolve", "resolved_resolve", "resolved_resolve"]]])")},
        // A text may put any revision under a closing one, which comes before the parent that it has.
        {text_of(R"(["x1_first", [["resolved_x1", "x1_x2"], "x2_x1"]])"), text_of(R"(["x1_first", "x2_x1", "x1_x2"])"),
         text_of(R"(["x1_first", [["resolved_x1", "x1_x2"], "x2_x1"]])")},
        // A document that only one side has, with all its branches closed, is opened whichever side that is.
        {text_of(R"(["A_first"])"), text_of(R"(["A_first"])", "", R"("n": ["B_first", "resolved_B"])"),
         text_of(R"(["A_first"])", "", R"("n": ["B_first", "resolved_B", "B_resolve"])")},
    };
    const auto written = [](const std::string& text) { return serialized(Opened(text).storage()); };
    for (const auto& [source, target, result] : cases) {
        SCOPED_TRACE(source + " into " + target);
        const Opened from(source);
        const Opened to(target);
        Arena arena;
        SharedMemory of_a_call(arena);
        SharedMemory of_a_handle;
        for (SharedMemory* memory : {&of_a_call, &of_a_handle}) {
            const DocumentStorage merged = replicate(from.storage(), to.storage(), *memory);
            EXPECT_EQ(serialized(merged), written(result));
            const DocumentStorage again = replicate(from.storage(), merged, *memory);
            EXPECT_EQ(serialized(again), written(result));
            if (to.storage().documents().empty()) continue;
            const DocumentStorage back = replicate(to.storage(), from.storage(), *memory);
            for (const auto& entry : merged.documents()) {
                EXPECT_EQ(back.find(entry.key)->history(), entry.value->history());
            }
        }
    }
}

TEST(Replicate, RefusesOtherRoots) {
    const Opened ours(text_of(R"(["A_first"])"));
    const Opened theirs(R"({"d": {"other": ["A_first"]}, "r": "other"})");
    const Opened empty("{}");
    SharedMemory memory;
    for (const Opened* other : {&theirs, &empty}) {
        EXPECT_EQ(failure<ReplicationException>([&] { (void)replicate(other->storage(), ours.storage(), memory); }),
                  record(source::replicator, "operator ()", "mismatching_root_document_identifiers"));
    }
}

TEST(Replicate, TellsOfASecondFirstRevision) {
    const Opened source(text_of(R"(["B_first"])"));
    const Opened target(text_of(R"(["A_first", "C_A"])"));
    SharedMemory memory;
    testing::internal::CaptureStderr();
    EXPECT_THROW((void)replicate(source.storage(), target.storage(), memory), SecondFirstRevision);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Document root\nActual root 1-A_first\nWannabe root 1-B_first\n2-C_A\n");
}

TEST(Update, IsNeverSilentlyDropped) {
    // The revision that an update would make is known from another branch, which was settled.
    const std::string now = hash(R"({"v": 2})");
    const std::string then = hash(R"({"v": 1})");
    const std::string old = then.substr(0, 7);
    const Opened merged(R"({"d": {"root": ["A_first", [["P_A", ")" + then + R"(_P", ")" + now + "_" + old +
                        R"(", "resolved_)" + now.substr(0, 7) + R"("], ["Q_A", ")" + then + R"(_Q"]]]}, "o": {")" +
                        then + R"(": {"v": 1}}, "r": "root"})");
    EXPECT_EQ(read(merged.storage()), R"({"_id": "root", "v": 1})");
    const DocumentStorage changed = updated(merged.storage(), R"({"v": 2})");
    EXPECT_EQ(read(changed), R"({"_id": "root", "v": 2})");
    EXPECT_EQ(serialized(updated(changed, R"({"v": 2})")), serialized(changed));
}

}  // namespace
}  // namespace libzentadbpp
