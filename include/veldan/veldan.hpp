#ifndef VELDAN_VELDAN_HPP
#define VELDAN_VELDAN_HPP

/**
 * @file
 * The entry points for C++17 programs: an instance that frees itself, vectors in place of sizes, exceptions in place of
 * codes. Header-only, on top of <veldan/face_api.h>, whose notes on threads, buffers and images hold here too: an
 * Instance serves one thread at a time, and images are packed 8-bit pixels in blue, green, red order.
 *
 *     veldan::Instance instance;
 *     for (const VDFACEINFOEX& face : instance.detect({pixels, width, height}))
 *         std::cout << face.x << ' ' << face.y << '\n';
 */

#include <veldan/face_api.h>
#include <veldan/face_flows.hpp>
#include <veldan/template.hpp>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace veldan {

/** What a result code means, in words. */
inline const char* describe(int code) {
    switch (code) {
    case VD_OK:
        return "success";
    case VD_ERR_HANDLE:
        return "there is no instance";
    case VD_ERR_NO_FACE:
        return "no face was found";
    case VD_ERR_LANDMARK:
        return "the landmark engine failed";
    case VD_ERR_NOT_ONE_FACE:
        return "exactly one face is needed";
    case VD_ERR_TEMPLATE:
        return "a template is damaged or of the other kind";
    case VD_ERR_EXTRACT:
        return "extraction failed";
    case VD_ERR_NETWORK:
        return "an embedded network cannot be loaded";
    case VD_ERR_TOO_MANY_FACES:
        return "there are more than 100 faces";
    case VD_ERR_IMAGE_TOO_SMALL:
        return "the image is too small: at least 100 x 100 pixels are needed";
    case VD_ERR_ENGINE:
        return "the quality, mask or landmark engine failed";
    case VD_SEARCH_UNDECIDED:
        return "undecided";
    case VD_SEARCH_UNKNOWN:
        return "unknown";
    case VD_SEARCH_CAPACITY:
        return "the gallery has more persons than the instance allows";
    default:
        return "the arguments make no sense";
    }
}

/** A call failed. */
class Error : public std::runtime_error {
public:
    Error(const std::string& what, int code) : std::runtime_error(what + ": " + describe(code)), code_(code) {}

    /** The result code, see <veldan/result_codes.h>. */
    int code() const noexcept { return code_; }

private:
    int code_;
};

/** An image that belongs to somebody else: height rows of width x 3 bytes in blue, green, red order. Only read. */
struct ImageView {
    unsigned char* pixels = nullptr; ///< not const because the C interface is not
    int width = 0;
    int height = 0;
};

/** Elements that belong to somebody else. */
template <class T>
struct Span {
    T* data = nullptr;
    std::size_t size = 0;

    Span() = default;
    Span(T* data_, std::size_t size_) : data(data_), size(size_) {}
    Span(std::vector<T>& elements)
        : data(elements.data()), size(elements.size()) {} // NOLINT: views are made in passing

    T* begin() const { return data; }
    T* end() const { return data + size; }
};

/** Templates of one kind, grouped by person. The index of a person is what a search answers. */
class Gallery {
public:
    explicit Gallery(Kind kind = Kind::Bare) : kind_(kind) {}

    /** Appends a person. @return its index */
    int add(const std::vector<Template>& templates) {
        for (const Template& one : templates)
            bytes_.insert(bytes_.end(), one.begin(), one.end());
        counts_.push_back(static_cast<int>(templates.size()));
        return static_cast<int>(counts_.size()) - 1;
    }

    Kind kind() const { return kind_; }
    int persons() const { return static_cast<int>(counts_.size()); }
    /** The person that a template belongs to, by the template's index. */
    int personOf(std::size_t index) const {
        int person = 0;
        while (person < persons() && index >= static_cast<std::size_t>(counts_[static_cast<std::size_t>(person)]))
            index -= static_cast<std::size_t>(counts_[static_cast<std::size_t>(person++)]);
        return person;
    }
    std::size_t templates() const { return bytes_.size() / templateBytes; }
    /** @name As the C interface takes them */
    ///@{
    unsigned char* data() { return bytes_.data(); }
    int* counts() { return counts_.data(); }
    ///@}

private:
    Kind kind_;
    std::vector<unsigned char> bytes_;
    std::vector<int> counts_;
};

/** An instance with all engines. Movable, not copyable; one thread at a time. */
class Instance {
public:
    /** @param capacity  most persons of a searched gallery. Throws Error when a network cannot be loaded. */
    explicit Instance(int capacity = VELDAN_DEFAULT_CAPACITY) {
        int result = 0;
        handle_ = zzInitAlgNThread(nullptr, capacity, &result);
        if (handle_ == nullptr)
            throw Error("the library did not start", result);
        records_.resize(VELDAN_DETECT_CAPACITY);
    }
    Instance(Instance&& other) noexcept
        : handle_(std::exchange(other.handle_, nullptr)), records_(std::move(other.records_)) {}
    Instance& operator=(Instance&& other) noexcept {
        std::swap(handle_, other.handle_);
        std::swap(records_, other.records_);
        return *this;
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;
    ~Instance() { zzFreeAlgThread(handle_); }

    /** For entry points that have no counterpart here. */
    void* handle() const { return handle_; }

    /** Faces of an image, largest first; none is no error, and more than 100 are not either. */
    std::vector<VDFACEINFOEX> detect(ImageView image) {
        int count = 0;
        const int code = zzDetectFaceThread(handle_, image.pixels, image.width, image.height, &count, records_.data());
        if (code == VD_ERR_NO_FACE && image.pixels != nullptr)
            return {};
        if (code != VD_ERR_TOO_MANY_FACES)
            check("detection", code);
        return {records_.begin(), records_.begin() + count};
    }

    /**
     * Follows faces from frame to frame: hand in what the previous call gave, an empty list for the first frame. No
     * face gives an empty list, with which the next frame starts anew. Throws Error when the image is unusable.
     */
    void track(ImageView image, std::vector<VDFACEINFOEX>& faces) {
        if (image.pixels == nullptr || image.width < 100 || image.height < 100)
            throw Error("tracking", VD_ERR_IMAGE_TOO_SMALL);
        int count = static_cast<int>(faces.size());
        faces.resize(VELDAN_DETECT_CAPACITY);
        const int code = zzTrackFaceThread(handle_, image.pixels, image.width, image.height, &count, faces.data());
        faces.resize(code == VD_OK ? static_cast<std::size_t>(count) : 0);
        if (code != VD_ERR_NO_FACE)
            check("tracking", code);
    }

    /** @name One engine over all faces of an image; each writes one word of the records */
    ///@{
    void judgeQuality(ImageView image, Span<VDFACEINFOEX> faces) {
        check("quality", run(zzFaceQualityThread, image, faces));
    }
    void judgeMask(ImageView image, Span<VDFACEINFOEX> faces) {
        check("mask classification", run(zzFaceMaskThread, image, faces));
    }
    void judgeLiveness(ImageView image, Span<VDFACEINFOEX> faces) {
        check("liveness", run(zzVisLivenessDetectThread, image, faces));
    }
    void judgeNearInfraredLiveness(ImageView image, Span<VDFACEINFOEX> faces) {
        check("near-infrared liveness", run(zzNirLivenessDetectThread, image, faces));
    }
    ///@}

    /** Quality of one face for enrolment, 0 to 100: lowered when it is blurred. Written to the record too. */
    int enrolmentQuality(ImageView image, VDFACEINFOEX& face) {
        // The call's result does not tell a quality of 15 or 32 from an error; the record does.
        face.quality = -1;
        const int code = zzFaceQuality4RegisterThread(handle_, image.pixels, image.width, image.height, 1, &face);
        if (face.quality < 0)
            check("quality", code);
        return face.quality;
    }

    /** Template of a face for recognition. */
    Template extract(ImageView image, VDFACEINFOEX& face, Kind kind = Kind::Bare) {
        return extractWith(kind == Kind::Bare ? zzExtractFeatureThread : zzMaskExtractFeatureThread, image, face);
    }
    /** Template of a bare face for enrolment. A masked face is enrolled with what extract() gives. */
    Template extractForEnrolment(ImageView image, VDFACEINFOEX& face, Kind kind = Kind::Bare) {
        return extractWith(kind == Kind::Bare ? zzExtractFeatureThread : zzMaskExtractFeature4RegThread, image, face);
    }

    /** Similarity of two templates of a kind, 0 to 1. Throws Error when one is damaged or of the other kind. */
    float match(const Template& a, const Template& b, Kind kind = Kind::Bare) {
        return matchBytes(a.data(), b.data(), kind);
    }

    /**
     * One-shot search: the person whose best template is the most similar one.
     * @param threshold  similarity that it must reach, 0 to 1
     * @return index and similarity of the person; index -1 when nobody reaches the threshold
     */
    std::pair<int, float> identify(Gallery& gallery, const Template& feature, float threshold) {
        VDFACEINFOEX best{};
        DetectSearchFeatureThread(handle_, static_cast<int>(gallery.kind()), gallery.data(),
                                  static_cast<int>(gallery.templates()), 0.0F,
                                  const_cast<unsigned char*>(feature.data()), &best);
        // Nothing comparable scores 0, like an empty gallery.
        if (best.searchScore <= 0)
            return {-1, 0.0F};
        // The search says percent; the similarity itself decides.
        const auto index = static_cast<std::size_t>(best.searchId);
        const float score = matchBytes(gallery.data() + index * templateBytes, feature.data(), gallery.kind());
        return {score >= threshold ? gallery.personOf(index) : -1, score};
    }

    /**
     * After track(), with the same image and records: searches the faces that are not recognised yet, masked ones in
     * the masked gallery. Both galleries hold the same persons with the same number of templates each. Thresholds in
     * percent; verdicts are in searchFlag, searchId, searchScore and strangerFlag.
     */
    void searchTracked(ImageView image, Span<VDFACEINFOEX> faces, Gallery& bare, Gallery& masked, int threshold,
                       int maskThreshold, int qualityThreshold) {
        check("search", zzSearchAllFaceThread(handle_, bare.data(), masked.data(), bare.persons(), bare.counts(),
                                              bare.persons(), threshold, maskThreshold, qualityThreshold, image.pixels,
                                              image.width, image.height, static_cast<int>(faces.size), faces.data));
    }

private:
    using FrameOperation = int (*)(void*, unsigned char*, int, int, int, VDFACEINFOEX*);
    using Extraction = int (*)(void*, unsigned char*, int, int, int, VDFACEINFOEX*, unsigned char*);

    static void check(const char* what, int code) {
        if (code != VD_OK)
            throw Error(what, code);
    }

    float matchBytes(const unsigned char* a, const unsigned char* b, Kind kind) {
        float score = 0;
        const auto operation = kind == Kind::Bare ? zzMatchFeatureThread : zzMaskMatchFeatureThread;
        check("matching", operation(handle_, const_cast<unsigned char*>(a), const_cast<unsigned char*>(b), &score));
        return score;
    }

    int run(FrameOperation operation, ImageView image, Span<VDFACEINFOEX> faces) {
        return operation(handle_, image.pixels, image.width, image.height, static_cast<int>(faces.size), faces.data);
    }

    Template extractWith(Extraction operation, ImageView image, VDFACEINFOEX& face) {
        if (image.pixels == nullptr || image.width <= 0 || image.height <= 0)
            throw Error("extraction", -1);
        Template feature{};
        check("extraction", operation(handle_, image.pixels, image.width, image.height, 1, &face, feature.data()));
        return feature;
    }

    void* handle_ = nullptr;
    std::vector<VDFACEINFOEX> records_;
};

/**
 * Follows the faces of a video, frame after frame. Instance::track() takes a face that overlaps none of the frame
 * before for its face 0, and gives the faces of a first frame no identities. Here every such face begins a new
 * identity, without a verdict, and no identity is ever used for two faces.
 */
class Tracker {
public:
    /** @param instance  must outlive the tracker, and should follow no other video meanwhile */
    explicit Tracker(Instance& instance) : instance_(&instance) {}

    /**
     * The faces of the next frame. Throws Error when the image is unusable. Hand the result to
     * Instance::searchTracked() for the verdicts, which the faces keep in the frames that follow.
     */
    std::vector<VDFACEINFOEX>& next(ImageView image) {
        std::vector<VDFACEINFOEX> before = faces_;
        instance_->track(image, faces_);
        for (VDFACEINFOEX& face : faces_)
            if (!takeIdentity(face, before))
                begin(face);
        return faces_;
    }

private:
    static bool overlap(const VDFACEINFOEX& a, const VDFACEINFOEX& b) {
        return a.x < b.x + b.width && b.x < a.x + a.width && a.y < b.y + b.height && b.y < a.y + a.height;
    }

    // Whether the face is one of the frame before, which then no other face can be.
    static bool takeIdentity(const VDFACEINFOEX& face, std::vector<VDFACEINFOEX>& before) {
        for (auto candidate = before.begin(); candidate != before.end(); ++candidate)
            if (candidate->trackId == face.trackId && overlap(*candidate, face)) {
                before.erase(candidate);
                return true;
            }
        return false;
    }

    void begin(VDFACEINFOEX& face) {
        face.trackId = next_++;
        face.searchFlag = 0;
        face.searchId = -1;
        face.searchScore = 0;
        face.strangerFlag = 0;
    }

    Instance* instance_;
    std::vector<VDFACEINFOEX> faces_;
    int next_ = 0;
};

} // namespace veldan

#endif
