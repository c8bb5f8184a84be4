#include "libzentadbpp/frame.h"
#include "transformation/unflattener.h"
#include "transformation/update.h"

using namespace libzentadbpp;

namespace {

void require(bool holds, const char* bare_key) {
    if (!holds) throw CallFailure{bare_key};
}

}  // namespace

flatten_result json_object_flatten(const char* input, const char* config) {
    return answer<flatten_result>([&](Call& call) {
        const JsonValue data = call.json(input);
        require(data.is_object(), "expecting_object_as_input_to_flatten");
        const JsonValue configuration = call.json(config);
        require(configuration.is_object(), "expecting_object_as_configuration_to_flatten");
        TextBuffer documents;
        flatten_object(data, TransformationSettings(configuration), call.arena(), documents);
        return Call::rendered(std::move(documents));
    });
}

flatten_result json_array_unflatten(const char* input, const char* config, const char* root_id) {
    return answer<flatten_result>([&](Call& call) {
        const JsonValue documents = call.json(input);
        require(documents.is_array(), "expecting_array_as_input_to_unflatten");
        const JsonValue configuration = call.json(config);
        require(configuration.is_object(), "expecting_object_as_configuration_to_flatten");
        TextBuffer data;
        unflatten_array(documents, root_id == nullptr ? std::string_view{} : std::string_view(root_id),
                        TransformationSettings(configuration), data);
        return Call::rendered(std::move(data));
    });
}
