// Requests about the server itself.

#include "report/version.hpp"
#include "services.hpp"

namespace veldan::service {

namespace {

Answer plain(const std::string& text) {
    Answer answer;
    answer.type = "text/plain";
    answer.body = text + "\n";
    return answer;
}

} // namespace

Answer tellVersion(Call& /*call*/) {
    return Answer::json(kit::versionJson());
}

Answer tellHealth(Call& /*call*/) {
    return plain("alive");
}

Answer tellReadiness(Call& call) {
    if (call.services.stopping)
        throw Problem(503, "the server is stopping");
    call.services.audit.require();
    try {
        call.services.gallery.searchable();
    } catch (const kit::CommandError&) {
        throw Problem(503, "the gallery cannot be read"); // whoever asks here need not learn where it is
    }
    return plain("ready");
}

Answer tellMetrics(Call& call) {
    Answer answer;
    answer.type = "text/plain; version=0.0.4";
    answer.body = call.services.metrics.text(call.services);
    return answer;
}

Answer tellOpenApi(Call& /*call*/) {
    static const std::string document = kit::written(openApi(), 1) + "\n";
    Answer answer;
    answer.body = document;
    return answer;
}

} // namespace veldan::service
