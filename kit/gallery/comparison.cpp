#include "gallery/comparison.hpp"

#include "photo/largest_face.hpp"
#include "report/exit_codes.hpp"
#include "report/similarity.hpp"

namespace veldan::kit {

Kind kindToCompare(const ComparedSides& sides, bool masked) {
    const bool maskWorn = sides[0].face.masked || sides[1].face.masked;
    const Kind kind = masked || maskWorn ? Kind::Masked : Kind::Bare;
    const ComparedSide* master = nullptr;
    for (const ComparedSide& side : sides) {
        if (!side.given)
            continue;
        if (master != nullptr && master->given->kind != side.given->kind)
            throw CommandError(ExitCode::Unsuitable,
                               "a template of a bare face and one of a masked face cannot be compared with each other");
        master = &side;
    }
    if (master == nullptr)
        return kind;
    if (kind == Kind::Masked && master->given->kind == Kind::Bare)
        throw CommandError(ExitCode::Unsuitable, master->path +
                                                     ": the template of a bare face, which cannot be compared " +
                                                     (maskWorn ? "with a face that wears a mask" : "as a masked face") +
                                                     "; \"veldan template --mask\" makes the other kind");
    return master->given->kind;
}

double similarityOf(Instance& instance, ComparedSides& sides, Kind kind) {
    std::array<Template, 2> templates{};
    for (std::size_t i = 0; i < sides.size(); ++i)
        templates[i] =
            sides[i].given ? sides[i].given->bytes : templateOf(instance, sides[i].photo, sides[i].face, kind);
    try {
        return static_cast<double>(instance.match(templates[0], templates[1], kind));
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }
}

void putComparison(Json& document, double similarity, Kind kind, std::optional<double> threshold) {
    document["kind"] = kindName(kind);
    document["similarity"] = similarity;
    document["verdict"] = verdictOn(similarity, kind);
    if (threshold) {
        document["threshold"] = *threshold;
        document["same"] = similarity >= *threshold;
    }
    document["steps"] = stepsJson(similarity, kind);
}

} // namespace veldan::kit
