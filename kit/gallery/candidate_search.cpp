#include "gallery/candidate_search.hpp"

#include <algorithm>

namespace veldan::kit {

std::vector<Candidate> nearestCandidates(Instance& instance, const SearchableGallery& gallery, const Template& probe,
                                         Kind kind, std::size_t count) {
    const Gallery& templates = kind == Kind::Bare ? gallery.bare : gallery.masked;
    std::vector<Candidate> candidates;
    candidates.reserve(gallery.names.size());
    std::size_t photo = 0;
    for (std::size_t person = 0; person < gallery.names.size(); ++person) {
        Candidate best{person, photo, -1};
        for (int i = 0; i < templates.counts()[person]; ++i, ++photo) {
            Template enrolled{};
            std::copy_n(templates.data() + photo * templateBytes, templateBytes, enrolled.begin());
            const float similarity = instance.match(enrolled, probe, kind);
            if (similarity > best.similarity)
                best = {person, photo, similarity};
        }
        candidates.push_back(best);
    }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& a, const Candidate& b) { return a.similarity > b.similarity; });
    candidates.resize(std::min(count, candidates.size()));
    return candidates;
}

} // namespace veldan::kit
