#include "recog/gallery_search.hpp"

#include "engine/rounding.hpp"
#include "recog/gallery_kernels.hpp"
#include "recog/similarity.hpp"
#include "recog/template_layout.hpp"

#include <veldan/feature_template.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <numeric>

namespace veldan {

namespace {

int lowestBit(std::uint64_t bits) {
    return __builtin_ctzll(bits);
}

// A usable probe, ready for the exact comparison and for the kernels.
class Probe {
public:
    Probe(int kind, const unsigned char* bytes)
        : decoded(TzDecode(kind, bytes, templateSize, reinterpret_cast<unsigned char*>(feature)) == 0) {
        if (!decoded)
            return;
        double squares[8] = {};
        for (int j = 0; j < featureLength; ++j)
            squares[j % 8] += static_cast<double>(feature[j]) * static_cast<double>(feature[j]);
        squaredNorm = std::accumulate(std::begin(squares), std::end(squares), 0.0);
        const double scale = 0.5 / std::sqrt(squaredNorm);
        for (int j = 0; j < featureLength; ++j)
            forKernels.halfDirection[j] = static_cast<float>(static_cast<double>(feature[j]) * scale);
        // What the probe was accepted for is what the gallery must show as well.
        std::memcpy(forKernels.tag, bytes, sizeof forKernels.tag);
    }

    // Whether approximate scores keep their bounds; never so when a value is not finite.
    bool isRegular() const {
        return decoded && squaredNorm >= static_cast<double>(leastSquaredNorm) &&
               squaredNorm <= static_cast<double>(mostSquaredNorm);
    }

    const GalleryProbe& kernelProbe() const { return forKernels; }

    // The similarity to an intact template.
    float compare(const unsigned char* entry) const {
        float other[featureLength];
        std::memcpy(other, entry + templateSize - sizeof other, sizeof other);
        return static_cast<float>(similarity(other, feature));
    }

private:
    float feature[featureLength];
    GalleryProbe forKernels;
    double squaredNorm = 0;
    bool decoded;
};

// A search under way: block after block it scores the templates and then settles what the scores leave open.
class Search {
public:
    Search(const GalleryKernel& kernel_, const Probe& probe_, std::int32_t* percents_)
        : kernel(kernel_), probe(probe_), percents(percents_) {}

    void startBlock(const unsigned char* templates, int count) {
        entries = templates;
        kernel.score(templates, count, probe.kernelProbe(), toBeat, scores);
        match.refused = match.refused || scores.refused != 0;
        if ((scores.refused | scores.unsafe) != 0)
            scoreOddOnes();
    }

    // Takes the templates from `from` to before `to` of the block for ones of that person.
    void settle(int person, int from, int to) {
        if (scores.contending != 0)
            for (int i = from; i < to; ++i)
                if ((scores.contending >> i & 1U) != 0)
                    contend(person, i);
        if (percents != nullptr)
            settlePercent(percents[person], from, to);
    }

    // The same for a block with one template each of these persons.
    void settleEach(int firstPerson, int count) {
        for (std::uint64_t left = scores.contending; left != 0; left &= left - 1)
            contend(firstPerson + lowestBit(left), lowestBit(left));
        if (percents == nullptr)
            return;
        std::copy_n(scores.lower, count, percents + firstPerson);
        for (std::uint64_t left = scores.open; left != 0; left &= left - 1)
            settlePercent(percents[firstPerson + lowestBit(left)], lowestBit(left), lowestBit(left) + 1);
    }

    GalleryMatch result() {
        decide();
        return match;
    }

private:
    const unsigned char* entry(int i) const { return entries + static_cast<std::ptrdiff_t>(i) * templateSize; }

    // Scores outside the kernels' bounds are computed exactly, so that all that follows need not know of them.
    void scoreOddOnes() {
        for (std::uint64_t left = scores.refused | scores.unsafe; left != 0; left &= left - 1) {
            const int i = lowestBit(left);
            const std::uint64_t bit = std::uint64_t{1} << i;
            const float score = (scores.refused & bit) != 0 ? 0 : probe.compare(entry(i));
            const bool counts = score > 0;
            scores.score[i] = counts ? score : 0;
            scores.lower[i] = scores.upper[i] = counts ? percent(score) : 0;
            scores.contending = score > toBeat ? scores.contending | bit : scores.contending & ~bit;
        }
    }

    void contend(int person, int i) {
        // The one to beat may have grown since the block was scored.
        if (!(scores.score[i] + galleryScoreError > toBeat))
            return;
        if (contenderCount == contenderLimit)
            decide();
        contenders[contenderCount++] = {entry(i), scores.score[i], person};
        toBeat = std::max(toBeat, scores.score[i] - galleryScoreError);
    }

    // Finds the best of the contenders. Most of them have been overtaken by then and need no exact comparison.
    void decide() {
        for (const Contender* one = contenders; one != contenders + contenderCount; ++one) {
            // One that is equal to the best may have come before it.
            if (one->score + galleryScoreError < toBeat)
                continue;
            const float score = probe.compare(one->entry);
            if (score > match.score) {
                match.score = score;
                match.person = one->person;
            }
        }
        contenderCount = 0;
        toBeat = match.score;
    }

    // Percents grow with scores, so the best of a person has the greatest of the percents.
    void settlePercent(std::int32_t& best, int from, int to) {
        std::int32_t most = best;
        for (int i = from; i < to; ++i) {
            best = std::max(best, scores.lower[i]);
            most = std::max(most, scores.upper[i]);
        }
        for (int i = from; best != most && i < to; ++i)
            if (scores.upper[i] > best)
                best = std::max(best, percent(probe.compare(entry(i))));
    }

    // A template that may be the best.
    struct Contender {
        const unsigned char* entry;
        float score;
        int person;
    };
    static constexpr int contenderLimit = 32;

    const GalleryKernel& kernel;
    const Probe& probe;
    std::int32_t* const percents;
    GalleryMatch match;
    Contender contenders[contenderLimit];
    int contenderCount = 0;
    // What the best score is at least.
    float toBeat = 0;

    const unsigned char* entries = nullptr;
    GalleryScores scores;
};

std::int64_t templatesOf(const int* templateNums, int personNum) {
    std::int64_t sum = 0;
    for (int person = 0; person < personNum; ++person)
        sum += std::max(templateNums[person], 0);
    return sum;
}

} // namespace

GalleryMatch searchGalleryWith(const GalleryKernel& kernel, int kind, const unsigned char* gallery,
                               const int* templateNums, int personNum, const unsigned char* probe,
                               std::int32_t* percents) {
    const Probe prepared(kind, probe);
    if (!prepared.isRegular())
        return searchGalleryPlainly(kind, gallery, templateNums, personNum, probe, percents);

    Search search(kernel, prepared, percents);
    const unsigned char* next = gallery;
    const auto startBlock = [&](std::int64_t left) {
        const int count = static_cast<int>(std::min<std::int64_t>(left, galleryBlock));
        search.startBlock(next, count);
        next += static_cast<std::ptrdiff_t>(count) * templateSize;
        return count;
    };

    if (templateNums == nullptr) {
        for (int person = 0; person < personNum;) {
            const int count = startBlock(personNum - person);
            search.settleEach(person, count);
            person += count;
        }
        return search.result();
    }

    // Blocks take no notice of where a person ends.
    std::int64_t left = templatesOf(templateNums, personNum);
    int at = 0;
    int end = 0;
    for (int person = 0; person < personNum; ++person) {
        if (percents != nullptr)
            percents[person] = 0;
        for (int wanted = templateNums[person]; wanted > 0;) {
            if (at == end) {
                end = startBlock(left);
                left -= end;
                at = 0;
            }
            const int taken = std::min(wanted, end - at);
            search.settle(person, at, at + taken);
            at += taken;
            wanted -= taken;
        }
    }
    return search.result();
}

GalleryMatch searchGallery(int kind, const unsigned char* gallery, const int* templateNums, int personNum,
                           const unsigned char* probe, std::int32_t* percents) {
    return searchGalleryWith(fastestGalleryKernel(), kind, gallery, templateNums, personNum, probe, percents);
}

} // namespace veldan
