// Scripts of handles that are opened, changed, asked, merged and freed in any order. None ever shows what happens to
// another, and none changes by a call that fails.

#include "checks.h"
#include "generate.h"

namespace fuzzing {
namespace {

using c_api::Answer;
using c_api::taken;

class Script {
   public:
    explicit Script(Choices& choices) : choices_(choices), generate_(choices) {}

    void run() {
        constexpr std::size_t most_steps = 24;
        constexpr std::size_t most_handles = 6;
        for (std::size_t step = 0; step < most_steps && !choices_.empty(); ++step) {
            if (held_.empty()) {
                hold(c_api::open(generate_.any_set()));
            } else if (held_.size() == most_handles || choices_.one_in(12)) {
                held_.erase(held_.begin() + static_cast<std::ptrdiff_t>(choices_.below(held_.size())));
            } else {
                take_step();
            }
            for (const Answer& each : held_) EXPECT_EQ(c_api::dump(each.handle), each.value);
        }
    }

   private:
    void hold(Answer answer) {
        expect_sound(answer, true);
        if (answer.handle) held_.push_back(std::move(answer));
    }

    Answer& any() { return held_[choices_.below(held_.size())]; }

    std::string leaf(sync_json_ptr handle, const std::string& id) {
        const auto leafs = c_api::split_list(taken(sync_json_ptr_leafs(handle, id.c_str())).value.value_or(""));
        return leafs.empty() || choices_.one_in(6) ? generate_.revision() : leafs[choices_.below(leafs.size())];
    }

    void take_step() {
        Answer& chosen = any();
        sync_json_ptr handle = chosen.handle.get();
        const std::string configuration = choices_.one_in(3) ? generate_.configuration() : "{}";
        switch (choices_.below(12)) {
            case 0:
                return hold(c_api::open(generate_.any_set()));
            case 1:
            case 2:
                return hold(
                    taken(update_sync_json_ptr(generate_.host_object().c_str(), handle, configuration.c_str())));
            case 3:
            case 4: {
                const Answer merged = taken(replicate_sync_json_ptr(handle, any().handle.get(), "{}"));
                if (merged.handle) {
                    EXPECT_EQ(taken(replicate_sync_json_ptr(handle, merged.handle.get(), "{}")), merged);
                }
                return hold(merged);
            }
            case 5: {
                const std::string id = generate_.id();
                return hold(taken(sync_json_ptr_resolve(handle, id.c_str(), leaf(handle, id).c_str())));
            }
            case 6:
                return hold(taken(
                    sync_json_ptr_prune(handle, static_cast<std::uint32_t>(choices_.below(4)), choices_.one_in(2))));
            case 7:
                return hold(taken(sync_json_ptr_prune_ids(handle, generate_.ids().c_str(),
                                                          static_cast<std::uint32_t>(choices_.below(4)), false)));
            case 8:
                return hold(taken(sync_json_ptr_all_winning(handle)));
            case 9:
                return hold(
                    taken(sync_json_ptr_from_bulk_get(generate_.bulk_get().c_str(), "{}"), c_api::Both::allowed));
            case 10: {
                const Answer read = taken(read_sync_json_ptr(handle, configuration.c_str()));
                expect_sound(read, false);
                if (!read.error.empty()) return;
                chosen.value = c_api::dump(chosen.handle);  // what may have been stored
                return expect_sound(chosen, true);
            }
            default:
                return ask(handle);
        }
    }

    void ask(sync_json_ptr handle) {
        const std::string id = generate_.id();
        const std::string revision = leaf(handle, id);
        sync_json_ptr older = any().handle.get();
        for (const Answer& answer :
             {taken(sync_json_ptr_root(handle)), taken(sync_json_ptr_winning(handle, id.c_str())),
              taken(sync_json_ptr_conflicting(handle, id.c_str())),
              taken(sync_json_ptr_available(handle, revision.c_str())),
              taken(sync_json_ptr_ancestor(handle, id.c_str(), revision.c_str())),
              taken(sync_json_ptr_siblings(handle, id.c_str(), revision.c_str())),
              taken(sync_json_ptr_history(handle, id.c_str(), revision.c_str())),
              taken(sync_json_ptr_data(handle, id.c_str(), revision.c_str(), "{}")),
              taken(sync_json_ptr_instances(handle)), taken(sync_json_ptr_unresolved(handle)),
              taken(sync_json_ptr_all_docs(handle)), taken(sync_json_ptr_created(handle, older)),
              taken(sync_json_ptr_updated(handle, older)), taken(sync_json_ptr_deleted(handle, older)),
              taken(sync_json_ptr_to_bulk_docs(handle))}) {
            expect_sound(answer, false);
        }
    }

    Choices& choices_;
    Generator generate_;
    std::vector<Answer> held_;  // each with what it dumps
};

}  // namespace
}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzing::Choices choices(data, size);
    fuzzing::Script(choices).run();
    return 0;
}
