#include "libzentadbpp/frame.h"
#include "replication/replicator.h"
#include "transformation/unflattener.h"
#include "transformation/update.h"

using namespace libzentadbpp;

sync_json_result read_sync_json(const char* sync_json, const char* config) {
    return answer([&](Call& call) {
        const TransformationSettings settings(call.configuration(config));
        SyncJsonText text = call.sync_json_object(sync_json, "synchronizable_json_is_not_an_object");
        TextBuffer data;
        // The storage ends with the call, so there is nothing for a reordering to stay in.
        const ReadIndex index(call.open(std::move(text), Inflation::reported), settings.instance_id);
        unflatten(index, {}, std::nullopt, settings.discard_id, data);
        return Call::rendered(std::move(data));
    });
}

sync_json_result update_sync_json(const char* input, const char* sync_json, const char* config) {
    return answer([&](Call& call) {
        const JsonValue data = call.object(input, "input_is_not_an_object");
        const JsonValue configuration = call.configuration(config);
        SyncJsonText text = call.sync_json_object(sync_json, "synchronizable_json_is_not_an_object");
        const DocumentStorage storage = call.open(std::move(text), Inflation::reported);
        const TransformationSettings settings(configuration);
        SharedMemory memory(call.arena());
        return Call::rendered(update(storage, data, settings, call.arena(), memory),
                              asks_for_compression(configuration));
    });
}

sync_json_result replicate_sync_json(const char* source, const char* target, const char* config) {
    return answer([&](Call& call) {
        const JsonValue configuration = call.configuration(config);
        SyncJsonText source_text =
            call.sync_json_object(source, "source_synchronizable_json_is_not_an_object", "null_source_syncjson");
        SyncJsonText target_text =
            call.sync_json_object(target, "target_synchronizable_json_is_not_an_object", "null_target_syncjson");
        const DocumentStorage from = call.open(std::move(source_text), Inflation::reported);
        const DocumentStorage to = call.open(std::move(target_text), Inflation::reported);
        SharedMemory memory(call.arena());
        return Call::rendered(replicate(from, to, memory), asks_for_compression(configuration));
    });
}

sync_json_result read_sync_json_ptr(sync_json_ptr ptr, const char* config) {
    return answer([&](Call& call) {
        const TransformationSettings settings(call.configuration(config));
        zentadbpp_document_storage& handle = call.handle(ptr);
        const auto index = handle.read_index(settings.instance_id);
        TextBuffer data;
        unflatten(*index, {}, std::nullopt, settings.discard_id, data);
        if (settings.preserve_old_ordering || index->shown().is_stored()) return Call::rendered(std::move(data));
        DocumentStorage reordered = index->shown().stored();
        CText text = Call::rendered(std::move(data));
        handle.replace(std::move(reordered));
        return text;
    });
}

sync_json_ptr_result update_sync_json_ptr(const char* input, sync_json_ptr ptr, const char* config) {
    return answer_handle([&](Call& call) {
        const JsonValue data = call.object(input, "input_is_not_an_object");
        const TransformationSettings settings(call.configuration(config));
        SharedMemory memory;
        const zentadbpp_document_storage& handle = call.handle(ptr);
        const auto [last, remember] = handle.for_update();
        Updated updated =
            update_again(handle.with_winning_contents(), data, settings, call.arena(), memory, last, remember);
        if (updated.as_it_was) handle.remember(updated.last);
        return Successor{std::move(updated.storage), {nullptr, handle.passed_on().read}, true, std::move(updated.last)};
    });
}

sync_json_ptr_result replicate_sync_json_ptr(sync_json_ptr source, sync_json_ptr target, const char* config) {
    return answer_handle([&](Call& call) {
        (void)call.configuration(config);
        const DocumentStorage& from = call.sync_json(source, "invalid_source_sync_json_ptr");
        const zentadbpp_document_storage& to = call.handle(target, "invalid_target_sync_json_ptr");
        SharedMemory memory;
        return Successor{replicate(from, to.storage(), memory), to.passed_on()};
    });
}
