#ifndef VELDAN_VELDAN_HPP
#define VELDAN_VELDAN_HPP

/**
 * @file
 * The entry points for C++17 programs: an instance that frees itself, vectors in place of sizes, exceptions in place of
 * codes. On top of <veldan/face_api.h>, whose notes on threads, buffers and images hold here too: an Instance serves
 * one thread at a time, and images are packed 8-bit pixels in blue, green, red order. All but Tracker is header-only.
 *
 *     veldan::Instance instance;
 *     for (const VDFACEINFOEX& face : instance.detect({pixels, width, height}))
 *         std::cout << face.x << ' ' << face.y << '\n';
 */

#include <veldan/face_api.h>
#include <veldan/face_flows.hpp>
#include <veldan/instance.hpp>
#include <veldan/template.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
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
    Error(const std::string& what, int code) : Error(what, code, describe(code)) {}
    Error(const std::string& what, int code, const std::string& why)
        : std::runtime_error(what + ": " + why), code_(code) {}

    /** The result code, see <veldan/result_codes.h>. */
    int code() const noexcept { return code_; }

private:
    int code_;
};

/** An image that belongs to somebody else: height rows of width x 3 bytes in blue, green, red order. Only read. */
struct ImageView {
    const unsigned char* pixels = nullptr;
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

    /**
     * Appends a person. Throws Error, with the gallery unchanged, when a template is none of the gallery's kind, see
     * flawOf().
     * @return its index
     */
    int add(const std::vector<Template>& templates) {
        for (std::size_t i = 0; i < templates.size(); ++i)
            if (const std::string flaw = flawOf(templates[i], kind_); !flaw.empty())
                throw Error("gallery", VD_ERR_TEMPLATE, "template " + std::to_string(i) + " " + flaw);
        for (const Template& one : templates)
            bytes_.insert(bytes_.end(), one.begin(), one.end());
        counts_.push_back(static_cast<int>(templates.size()));
        return static_cast<int>(counts_.size()) - 1;
    }

    /** Makes room, so that a gallery of known size takes no more memory than that while it grows. */
    void reserve(std::size_t persons, std::size_t templates) {
        counts_.reserve(persons);
        bytes_.reserve(templates * templateBytes);
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
    const unsigned char* data() const { return bytes_.data(); }
    const int* counts() const { return counts_.data(); }
    ///@}

private:
    Kind kind_;
    std::vector<unsigned char> bytes_;
    std::vector<int> counts_;
};

/** What the classes below have in common. Not for programs. */
namespace detail {

// The C interface only reads images, templates and galleries, but does not say so.
template <class T>
T* unconst(const T* elements) {
    return const_cast<T*>(elements);
}

inline void check(const char* what, int code) {
    if (code != VD_OK)
        throw Error(what, code);
}

inline void checkImage(const char* what, ImageView image, int leastSide) {
    if (image.pixels == nullptr)
        throw Error(what, VD_ERR_NO_FACE, "the image has no pixels");
    if (image.width < leastSide || image.height < leastSide)
        throw Error(what, VD_ERR_IMAGE_TOO_SMALL,
                    "the image is too small: " + std::to_string(image.width) + " x " + std::to_string(image.height) +
                        " pixels, at least " + std::to_string(leastSide) + " x " + std::to_string(leastSide) +
                        " are needed");
}

inline void checkTemplate(const char* what, const Template& one, Kind kind) {
    if (const std::string flaw = flawOf(one, kind); !flaw.empty())
        throw Error(what, VD_ERR_TEMPLATE, "a template " + flaw);
}

// Tracked searches walk through both galleries by the counts of one.
inline void checkGalleries(const Gallery& bare, const Gallery& masked) {
    if (bare.kind() != Kind::Bare || masked.kind() != Kind::Masked)
        throw Error("search", VD_ERR_TEMPLATE, "a gallery of bare faces and one of faces with masks are needed");
    if (bare.persons() != masked.persons() ||
        !std::equal(bare.counts(), bare.counts() + bare.persons(), masked.counts()))
        throw Error("search", VD_ERR_TEMPLATE,
                    "the two galleries do not hold the same persons with the same numbers of templates");
}

// Room for the faces of any frame. Zeroed once, and after that only where a call has written: filling it for every
// frame would cost more than tracking a face.
class Records {
public:
    Records() : records_(static_cast<VDFACEINFOEX*>(std::calloc(VELDAN_DETECT_CAPACITY, sizeof(VDFACEINFOEX)))) {
        if (!records_)
            throw std::bad_alloc();
    }

    // The records for a call: those of `before`, then zeros.
    VDFACEINFOEX* begin(const std::vector<VDFACEINFOEX>& before) {
        std::fill_n(records_.get(), written_, VDFACEINFOEX{});
        written_ = VELDAN_DETECT_CAPACITY; // unless the call says otherwise
        std::copy_n(before.begin(), std::min<std::size_t>(before.size(), VELDAN_MAX_FACES), records_.get());
        return records_.get();
    }

    // What the call has given. Where tracking gives 100 faces, more may have been written.
    std::vector<VDFACEINFOEX> end(int count, std::size_t handedIn = 0) {
        const auto given = static_cast<std::size_t>(count);
        if (given != VELDAN_MAX_FACES)
            written_ = std::max(given, std::max<std::size_t>(handedIn, 1));
        return {records_.get(), records_.get() + given};
    }

private:
    struct Free {
        void operator()(VDFACEINFOEX* records) const { std::free(records); }
    };
    std::unique_ptr<VDFACEINFOEX[], Free> records_;
    std::size_t written_ = 0;
};

} // namespace detail

/** An instance with all engines. Movable, not copyable; one thread at a time. */
class Instance {
public:
    /** @param capacity  most persons of a searched gallery. Throws Error when a network cannot be loaded. */
    explicit Instance(int capacity = VELDAN_DEFAULT_CAPACITY) : records_(std::make_unique<detail::Records>()) {
        int result = 0;
        handle_ = zzInitAlgNThread(nullptr, capacity, &result);
        if (handle_ == nullptr)
            throw Error("the library did not start", result);
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

    /** For entry points that have no counterpart here. Null once the instance was moved elsewhere. */
    void* handle() const { return handle_; }

    /** Faces of an image, largest first; none is no error, and more than 100 are not either. */
    std::vector<VDFACEINFOEX> detect(ImageView image) {
        detail::checkImage("detection", image, 100);
        requireHandle("detection");
        int count = 0;
        const int code = zzDetectFaceThread(handle_, detail::unconst(image.pixels), image.width, image.height, &count,
                                            records_->begin({}));
        std::vector<VDFACEINFOEX> faces = records_->end(count);
        if (code != VD_ERR_NO_FACE && code != VD_ERR_TOO_MANY_FACES)
            detail::check("detection", code);
        return faces;
    }

    /**
     * Follows faces from frame to frame, as zzTrackFaceThread() does: hand in what the previous call gave, an empty
     * list for the first frame. No face gives an empty list, with which the next frame starts anew; starting anew
     * forgets the evidence of the searches before, see forgetEvidence(). Throws Error when the image is unusable.
     *
     * For one video at a time, and only for those who number the faces of a first frame and the newcomers themselves:
     * Tracker does both.
     */
    void track(ImageView image, std::vector<VDFACEINFOEX>& faces) {
        detail::checkImage("tracking", image, 100);
        requireHandle("tracking");
        if (faces.empty())
            forgetEvidence();
        int count = static_cast<int>(faces.size());
        const int code = zzTrackFaceThread(handle_, detail::unconst(image.pixels), image.width, image.height, &count,
                                           records_->begin(faces));
        std::vector<VDFACEINFOEX> found = records_->end(count, faces.size());
        faces.clear();
        if (code == VD_ERR_NO_FACE)
            return;
        detail::check("tracking", code);
        faces = std::move(found);
    }

    /**
     * Begins the counts of all tracks anew, as every decision of a search does: no search that was made before then
     * counts towards one that comes after.
     */
    void forgetEvidence() {
        requireHandle("search");
        // Nobody reaches a threshold of nothing: a search for nobody among no one is decided, at the latest by its
        // third attempt, and a decision begins all counts anew.
        Template nobody{};
        VDFACEINFOEX anyone{};
        while (zzSearchFeatureThread(handle_, nullptr, 0, 0, nobody.data(), &anyone) == VD_SEARCH_UNDECIDED) {
        }
    }

    /** @name One engine over all faces of an image; each writes one word of the records
     * Liveness aligns a face by its maskScore, so judge the mask first. */
    ///@{
    void judgeQuality(ImageView image, Span<VDFACEINFOEX> faces) {
        judge("quality", zzFaceQualityThread, image, faces);
    }
    void judgeMask(ImageView image, Span<VDFACEINFOEX> faces) {
        judge("mask classification", zzFaceMaskThread, image, faces);
    }
    void judgeLiveness(ImageView image, Span<VDFACEINFOEX> faces) {
        judge("liveness", zzVisLivenessDetectThread, image, faces);
    }
    void judgeNearInfraredLiveness(ImageView image, Span<VDFACEINFOEX> faces) {
        judge("near-infrared liveness", zzNirLivenessDetectThread, image, faces);
    }
    ///@}

    /** Quality of one face for enrolment, 0 to 100: lowered when it is blurred. Written to the record too. */
    int enrolmentQuality(ImageView image, VDFACEINFOEX& face) {
        detail::checkImage("quality", image, 1);
        // The call's result does not tell a quality of 12, 15 or 32 from an error; the record does.
        face.quality = -1;
        const int code =
            zzFaceQuality4RegisterThread(handle_, detail::unconst(image.pixels), image.width, image.height, 1, &face);
        if (face.quality < 0)
            detail::check("quality", code);
        return face.quality;
    }

    /** Template of a face for recognition. */
    Template extract(ImageView image, VDFACEINFOEX& face, Kind kind = Kind::Bare) {
        return extractWith(kind == Kind::Bare ? zzExtractFeatureThread : zzMaskExtractFeatureThread, kind, image, face);
    }
    /** Template of a bare face for enrolment. A masked face is enrolled with what extract() gives. */
    Template extractForEnrolment(ImageView image, VDFACEINFOEX& face, Kind kind = Kind::Bare) {
        return extractWith(kind == Kind::Bare ? zzExtractFeatureThread : zzMaskExtractFeature4RegThread, kind, image,
                           face);
    }

    /** Similarity of two templates of a kind, 0 to 1. Throws Error when one is none of that kind, see flawOf(). */
    float match(const Template& a, const Template& b, Kind kind = Kind::Bare) {
        detail::checkTemplate("matching", a, kind);
        detail::checkTemplate("matching", b, kind);
        return matchBytes(a.data(), b.data(), kind);
    }

    /**
     * One-shot search: the person whose best template is the most similar one. Throws Error when the feature is no
     * template of the gallery's kind, see flawOf().
     * @param threshold  similarity that it must reach, 0 to 1
     * @return index and similarity of the person; index -1 when nobody reaches the threshold
     */
    std::pair<int, float> identify(const Gallery& gallery, const Template& feature, float threshold) {
        detail::checkTemplate("identification", feature, gallery.kind());
        requireHandle("identification");
        VDFACEINFOEX best{};
        DetectSearchFeatureThread(handle_, static_cast<int>(gallery.kind()), detail::unconst(gallery.data()),
                                  static_cast<int>(gallery.templates()), 0.0F, detail::unconst(feature.data()), &best);
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
     * the masked gallery. Thresholds in percent; verdicts are in searchFlag, searchId, searchScore and strangerFlag.
     * Throws Error when the galleries are not of these kinds, do not hold the same persons with the same number of
     * templates each, or have more persons than the instance's capacity. Faces of a Tracker are searched by
     * Tracker::search().
     */
    void searchTracked(ImageView image, Span<VDFACEINFOEX> faces, const Gallery& bare, const Gallery& masked,
                       int threshold, int maskThreshold, int qualityThreshold) {
        detail::checkImage("search", image, 1);
        checkFaces("search", faces);
        detail::checkGalleries(bare, masked);
        requireHandle("search");
        // The flow itself passes over this failure for every face.
        if (bare.persons() > static_cast<VdFaceAPI*>(handle_)->capacity)
            throw Error("search", VD_SEARCH_CAPACITY);
        detail::check("search",
                      zzSearchAllFaceThread(handle_, detail::unconst(bare.data()), detail::unconst(masked.data()),
                                            bare.persons(), detail::unconst(bare.counts()), bare.persons(), threshold,
                                            maskThreshold, qualityThreshold, detail::unconst(image.pixels), image.width,
                                            image.height, static_cast<int>(faces.size), faces.data));
    }

private:
    using FrameOperation = int (*)(void*, unsigned char*, int, int, int, VDFACEINFOEX*);
    using Extraction = int (*)(void*, unsigned char*, int, int, int, VDFACEINFOEX*, unsigned char*);

    void requireHandle(const char* what) const {
        if (handle_ == nullptr)
            throw Error(what, VD_ERR_HANDLE);
    }

    static void checkFaces(const char* what, Span<VDFACEINFOEX> faces) {
        if (faces.data == nullptr && faces.size > 0)
            throw Error(what, VD_ERR_NO_FACE, "there are no records");
    }

    float matchBytes(const unsigned char* a, const unsigned char* b, Kind kind) {
        float score = 0;
        const auto operation = kind == Kind::Bare ? zzMatchFeatureThread : zzMaskMatchFeatureThread;
        detail::check("matching", operation(handle_, detail::unconst(a), detail::unconst(b), &score));
        return score;
    }

    void judge(const char* what, FrameOperation operation, ImageView image, Span<VDFACEINFOEX> faces) {
        detail::checkImage(what, image, 1);
        checkFaces(what, faces);
        const int code = operation(handle_, detail::unconst(image.pixels), image.width, image.height,
                                   static_cast<int>(faces.size), faces.data);
        if (code == -1)
            throw Error(what, code, "the arguments make no sense");
        detail::check(what, code);
    }

    Template extractWith(Extraction operation, Kind kind, ImageView image, VDFACEINFOEX& face) {
        detail::checkImage("extraction", image, 1);
        Template feature{};
        detail::check("extraction", operation(handle_, detail::unconst(image.pixels), image.width, image.height, 1,
                                              &face, feature.data()));
        if (const std::string flaw = flawOf(feature, kind); !flaw.empty())
            throw Error("extraction", VD_ERR_EXTRACT, "the template " + flaw);
        return feature;
    }

    void* handle_ = nullptr;
    std::unique_ptr<detail::Records> records_;
};

/**
 * Follows the faces of a video, frame after frame, and searches them. Instance::track() takes a face that overlaps none
 * of the frame before for its face 0, and gives the faces of a first frame no identities. Here every such face begins a
 * new identity, without a verdict, and no identity is ever used for two faces.
 *
 * A tracker keeps the evidence of its searches to itself, each face's apart from all others': nothing that was seen in
 * another video, or of a face that has left, counts towards a verdict. So any number of trackers may follow videos with
 * one instance, in turns or one after the other. Movable, not copyable; one thread at a time, that of the instance.
 */
class VELDAN_API Tracker {
public:
    /** @param instance  must outlive the tracker; may be moved */
    explicit Tracker(Instance& instance) : Tracker(instance.handle()) {}
    /** @param handle  of an instance, as zzInitAlgThread() gives it; must outlive the tracker */
    explicit Tracker(void* handle);
    Tracker(Tracker&& other) noexcept;
    Tracker& operator=(Tracker&& other) noexcept;
    Tracker(const Tracker&) = delete;
    Tracker& operator=(const Tracker&) = delete;
    ~Tracker();

    /**
     * The faces of the next frame, largest first, at most 100; valid until the next call. Box, key points, eyeDistance
     * and quality are those of this frame. trackId is the face's identity; the verdict of search(), maskScore and
     * liveness are what was last found of it (of a new face: searchId, maskScore and liveness -1, all else 0).
     *
     * Throws Error when the image is unusable; the tracker is then as before the call.
     */
    const std::vector<VDFACEINFOEX>& next(ImageView image) {
        detail::checkImage("tracking", image, 100);
        detail::check("tracking", advance(image.pixels, image.width, image.height));
        return faces();
    }

    /** The faces of the last frame. */
    const std::vector<VDFACEINFOEX>& faces() const noexcept;

    /**
     * After next(), with the same image: searches the faces that are not recognised yet, as Instance::searchTracked().
     * @return the faces of the frame with their verdicts, maskScore judged anew
     */
    const std::vector<VDFACEINFOEX>& search(ImageView image, const Gallery& bare, const Gallery& masked, int threshold,
                                            int maskThreshold, int qualityThreshold) {
        detail::checkImage("search", image, 1);
        detail::checkGalleries(bare, masked);
        detail::check("search", searchFaces(bare.data(), masked.data(), bare.counts(), bare.persons(), threshold,
                                            maskThreshold, qualityThreshold, image.pixels, image.width, image.height));
        return faces();
    }

    /**
     * @name After next(), with the same image: judges whether the faces are live
     * One frame is little evidence, so liveness becomes the median of the scores that the face's identity got in its
     * latest 31 judged frames, of an even number the lower of the two in the middle. maskScore is that of this frame.
     */
    ///@{
    const std::vector<VDFACEINFOEX>& judgeLiveness(ImageView image) { return judge("liveness", image, false); }
    const std::vector<VDFACEINFOEX>& judgeNearInfraredLiveness(ImageView image) {
        return judge("near-infrared liveness", image, true);
    }
    ///@}

private:
    const std::vector<VDFACEINFOEX>& judge(const char* what, ImageView image, bool nearInfrared) {
        detail::checkImage(what, image, 1);
        detail::check(what, judgeFaces(image.pixels, image.width, image.height, nearInfrared));
        return faces();
    }

    int advance(const unsigned char* image, int width, int height);
    int judgeFaces(const unsigned char* image, int width, int height, bool nearInfrared);
    int searchFaces(const unsigned char* bare, const unsigned char* masked, const int* counts, int persons,
                    int threshold, int maskThreshold, int qualityThreshold, const unsigned char* image, int width,
                    int height);

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace veldan

#endif
