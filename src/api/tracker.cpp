#include "api/flows.hpp"
#include "api/identity.hpp"
#include "api/instance_handle.hpp"
#include "api/search_history.hpp"

#include <veldan/result_codes.h>
#include <veldan/veldan.hpp>

#include <algorithm>
#include <bitset>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

namespace veldan {

namespace {

using Faces = std::vector<VDFACEINFOEX>;

constexpr int notJudged = -1;
constexpr std::size_t judgedFrames = 31; // about a second of video

bool overlap(const VDFACEINFOEX& a, const VDFACEINFOEX& b) {
    return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
}

// What this frame shows of a face. All other words would be those of the face that had this place in the list before.
VDFACEINFOEX seen(const VDFACEINFOEX& record) {
    VDFACEINFOEX face{};
    face.x = record.x;
    face.y = record.y;
    face.width = record.width;
    face.height = record.height;
    face.keyPointNum = record.keyPointNum;
    std::copy_n(record.keyPointX, 7, face.keyPointX);
    std::copy_n(record.keyPointY, 7, face.keyPointY);
    face.quality = record.quality;
    face.eyeDistance = record.eyeDistance;
    return face;
}

void carryOver(const VDFACEINFOEX& before, VDFACEINFOEX& face) {
    inheritIdentity(before, face);
    face.maskScore = before.maskScore;
    face.liveness = before.liveness;
}

} // namespace

// Not exported with the class that it is part of.
struct __attribute__((visibility("hidden"))) Tracker::State {
    explicit State(VdFaceAPI* api_) : api(api_) {}

    // Gives the faces their identities: those of the frame before, each to one face, and new ones to all others.
    void identify(Faces found) {
        std::vector<bool> known(found.size());
        std::bitset<historyRows> rowsInUse;
        for (std::size_t i = 0; i < found.size(); ++i) {
            const auto before = std::find_if(faces.begin(), faces.end(), [&](const VDFACEINFOEX& candidate) {
                return candidate.trackId == found[i].trackId && overlap(candidate, found[i]);
            });
            found[i] = seen(found[i]);
            known[i] = before != faces.end();
            if (!known[i])
                continue;
            carryOver(*before, found[i]);
            rowsInUse.set(static_cast<std::size_t>(historyRowOf(before->trackId)));
            faces.erase(before);
        }
        for (std::size_t i = 0; i < found.size(); ++i)
            if (!known[i])
                begin(found[i], rowsInUse);
        faces = std::move(found);
        forgetLiveness();
    }

    // Of identities that are out of view: they do not come back.
    void forgetLiveness() {
        for (auto entry = liveness.begin(); entry != liveness.end();) {
            const bool inView = std::any_of(faces.begin(), faces.end(),
                                            [&](const VDFACEINFOEX& face) { return face.trackId == entry->first; });
            entry = inView ? std::next(entry) : liveness.erase(entry);
        }
    }

    int medianLiveness(int trackId, int score) {
        std::deque<int>& scores = liveness[trackId];
        scores.push_back(score);
        if (scores.size() > judgedFrames)
            scores.pop_front();
        std::vector<int> sorted(scores.begin(), scores.end());
        const auto middle = sorted.begin() + (static_cast<std::ptrdiff_t>(sorted.size()) - 1) / 2;
        std::nth_element(sorted.begin(), middle, sorted.end());
        return *middle;
    }

    // Faces whose identities differ by a multiple of 100 would share their evidence, so such numbers are passed over.
    void begin(VDFACEINFOEX& face, std::bitset<historyRows>& rowsInUse) {
        const auto row = [this] { return static_cast<std::size_t>(historyRowOf(unused)); };
        const auto advance = [this] { unused = unused < INT_MAX ? unused + 1 : 0; };
        while (rowsInUse.test(row()))
            advance();
        rowsInUse.set(row());
        evidence.forgetSearches(unused);
        face.trackId = unused;
        advance();
        face.searchFlag = 0;
        face.searchId = -1;
        face.searchScore = 0;
        face.strangerFlag = 0;
        face.maskScore = notJudged;
        face.liveness = notJudged;
    }

    VdFaceAPI* api; // null when there was no handle
    Faces faces;
    int unused = 0;
    detail::Records records;
    SparseHistory evidence;                  // kept apart from all others
    std::map<int, std::deque<int>> liveness; // the latest scores of each identity in view
};

Tracker::Tracker(void* handle) : state_(std::make_unique<State>(instanceOf(handle))) {}
Tracker::Tracker(Tracker&& other) noexcept = default;
Tracker& Tracker::operator=(Tracker&& other) noexcept = default;
Tracker::~Tracker() = default;

const std::vector<VDFACEINFOEX>& Tracker::faces() const noexcept {
    return state_->faces;
}

int Tracker::advance(const unsigned char* image, int width, int height) {
    State& state = *state_;
    if (state.api == nullptr)
        return VD_ERR_HANDLE;
    int count = static_cast<int>(state.faces.size());
    const int code =
        state.api->vdTrackFace(detail::unconst(image), width, height, &count, state.records.begin(state.faces));
    Faces found = state.records.end(count, state.faces.size());
    if (code == VD_ERR_NO_FACE)
        found.clear();
    else if (code != VD_OK)
        return code;
    state.identify(std::move(found));
    return VD_OK;
}

int Tracker::judgeFaces(const unsigned char* image, int width, int height, bool nearInfrared) {
    State& state = *state_;
    if (state.api == nullptr)
        return VD_ERR_HANDLE;
    if (state.faces.empty())
        return VD_OK;
    const int count = static_cast<int>(state.faces.size());
    unsigned char* const pixels = detail::unconst(image);
    Faces judged = state.faces;
    // Liveness chooses its points by the mask.
    int code = state.api->vdFaceMaskRGB(pixels, width, height, count, judged.data());
    if (code == VD_OK)
        code = nearInfrared ? state.api->vdNirLivenessDetect(pixels, width, height, count, judged.data())
                            : state.api->vdVisLivenessDetect(pixels, width, height, count, judged.data());
    if (code != VD_OK)
        return code;
    for (VDFACEINFOEX& face : judged)
        face.liveness = state.medianLiveness(face.trackId, face.liveness);
    state.faces = std::move(judged);
    return VD_OK;
}

int Tracker::searchFaces(const unsigned char* bare, const unsigned char* masked, const int* counts, int persons,
                         int threshold, int maskThreshold, int qualityThreshold, const unsigned char* image, int width,
                         int height) {
    State& state = *state_;
    if (state.api == nullptr)
        return VD_ERR_HANDLE;
    VdFaceAPI& api = *state.api;
    // The flow itself passes over this failure for every face.
    if (persons > api.capacity)
        return VD_SEARCH_CAPACITY;
    for (const VDFACEINFOEX& face : state.faces)
        if (face.searchFlag < 1)
            state.evidence.prepare(face.trackId, api.capacity);
    const HistoryLoan loan(api, state.evidence);
    searchAllFaces(api, {persons, detail::unconst(counts), persons}, {detail::unconst(bare), threshold},
                   {detail::unconst(masked), maskThreshold}, qualityThreshold, {detail::unconst(image), width, height},
                   static_cast<int>(state.faces.size()), state.faces.data());
    return VD_OK;
}

} // namespace veldan
