#include "detection_figures.hpp"

#include "statistics.hpp"

#include <algorithm>
#include <optional>

namespace veldan::eval {

PhotoVerdict judge(const std::vector<FoundFace>& found, const LabelledPhoto& labels, double pictureWidth,
                   double pictureHeight, const DetectionRules& rules) {
    PhotoVerdict verdict;
    std::vector<Box> neutral;
    for (const TeacherFace& face : labels.faces) {
        // The library keeps its boxes inside the picture; labels may reach out of it.
        const Box box = clipped(face.box, pictureWidth, pictureHeight);
        if (face.score >= rules.faceScore && sizeOf(face.box, rules.measure) >= rules.leastSize) {
            verdict.wanted.push_back(box);
            verdict.wantedProfile.push_back(isProfile(face.points));
        } else {
            neutral.push_back(box);
        }
    }
    for (const PersonBox& person : labels.personBoxes)
        neutral.push_back(clipped(person.box, pictureWidth, pictureHeight));

    const auto assignment = assignBoxes(boxesOf(found), verdict.wanted, rules.leastOverlap);
    verdict.wantedFound.assign(verdict.wanted.size(), false);
    for (const std::optional<std::size_t>& wanted : assignment) {
        if (wanted)
            verdict.wantedFound[*wanted] = true;
    }
    const auto liesOnFoundFace = [&](const Box& box) {
        for (std::size_t w = 0; w < verdict.wanted.size(); ++w) {
            if (verdict.wantedFound[w] && overlap(box, verdict.wanted[w]) >= rules.leastOverlap)
                return true;
        }
        return false;
    };
    neutral.erase(std::remove_if(neutral.begin(), neutral.end(), liesOnFoundFace), neutral.end());

    for (std::size_t f = 0; f < found.size(); ++f) {
        const auto overlapsFound = [&](const Box& box) {
            return overlap(found[f].box, box) >= rules.leastIgnoreOverlap;
        };
        if (assignment[f])
            verdict.found.push_back(Verdict::True);
        else if (std::any_of(neutral.begin(), neutral.end(), overlapsFound))
            verdict.found.push_back(Verdict::Ignored);
        else
            verdict.found.push_back(Verdict::False);
    }
    return verdict;
}

PointError pointError(const std::vector<FoundFace>& found, const FivePoints& truth) {
    PointError best;
    const double eyeDistance = distance(truth[0], truth[1]);
    const Point middle = centroid(truth);
    for (const FoundFace& face : found) {
        if (!face.box.contains(middle))
            continue;
        PointError error;
        error.matched = true;
        for (std::size_t k = 0; k < truth.size(); ++k) {
            error.each[k] = distance(face.points[k], truth[k]) / eyeDistance;
            error.mean += error.each[k] / static_cast<double>(truth.size());
        }
        if (!best.matched || error.mean < best.mean)
            best = error;
    }
    return best;
}

bool pointsContradictFaces(const LabelledPhoto& labels, double faceScore) {
    if (!labels.personPoints)
        return false;
    const Point middle = centroid(*labels.personPoints);
    bool hasFace = false;
    for (const TeacherFace& face : labels.faces) {
        if (face.score < faceScore)
            continue;
        hasFace = true;
        if (distance(centroid(face.points), middle) <= face.box.height / 5)
            return false;
    }
    return hasFace;
}

void DetectionFigures::add(const std::vector<FoundFace>& found, const LabelledPhoto& labels, double pictureWidth,
                           double pictureHeight, const DetectionRules& rules, double milliseconds, bool refused) {
    const PhotoVerdict verdict = judge(found, labels, pictureWidth, pictureHeight, rules);
    milliseconds_.push_back(milliseconds);
    refused_ += refused ? 1 : 0;
    for (std::size_t w = 0; w < verdict.wanted.size(); ++w) {
        ++faces_.all;
        faces_.found += verdict.wantedFound[w] ? 1 : 0;
        profiles_.all += verdict.wantedProfile[w] ? 1 : 0;
        profiles_.found += verdict.wantedProfile[w] && verdict.wantedFound[w] ? 1 : 0;
    }

    const bool empty = labels.faces.empty() && labels.personBoxes.empty() && !labels.personPoints;
    emptyPhotos_ += empty ? 1 : 0;
    for (std::size_t f = 0; f < found.size(); ++f) {
        ignored_ += verdict.found[f] == Verdict::Ignored ? 1 : 0;
        if (verdict.found[f] != Verdict::False)
            continue;
        ++falsePositives_;
        emptyFalsePositives_ += empty ? 1 : 0;
        smallFalsePositives_ += sizeOf(found[f].box, rules.measure) < rules.leastSize ? 1 : 0;
    }

    if (labels.personPoints) {
        const PointError error = pointError(found, *labels.personPoints);
        if (pointsContradictFaces(labels, rules.faceScore)) {
            ++pointFacesContradicted_;
            if (error.matched)
                contradictedErrors_.push_back(error.mean);
        } else if (error.matched) {
            pointErrors_.push_back(error.mean);
            for (std::size_t k = 0; k < error.each.size(); ++k)
                pointErrorSums_[k] += error.each[k];
        } else {
            ++pointFacesMissed_;
        }
    }

    std::map<std::string, std::vector<Box>> boxesOfClass;
    for (const PersonBox& person : labels.personBoxes) {
        if (sizeOf(person.box, rules.measure) >= rules.leastSize)
            boxesOfClass[person.category].push_back(clipped(person.box, pictureWidth, pictureHeight));
    }
    for (const auto& [category, boxes] : boxesOfClass) {
        Count& count = personBoxes_[category];
        count.all += boxes.size();
        for (const auto& box : assignBoxes(boxesOf(found), boxes, rules.leastOverlap))
            count.found += box ? 1 : 0;
    }
}

Json DetectionFigures::toJson() const {
    std::vector<double> allErrors = pointErrors_;
    allErrors.insert(allErrors.end(), contradictedErrors_.begin(), contradictedErrors_.end());
    std::array<double, 5> errorOfEach = pointErrorSums_;
    for (double& value : errorOfEach)
        value = pointErrors_.empty() ? 0 : value / static_cast<double>(pointErrors_.size());
    Json people = Json::object();
    for (const auto& [category, count] : personBoxes_)
        people[category] = {{"boxes", count.all}, {"found", count.found}};
    return {{"photos", photos()},
            {"faces", faces_.all},
            {"facesFound", faces_.found},
            {"recall", ratio(faces_.found, faces_.all).value_or(1)},
            {"falsePositives", falsePositives_},
            {"falsePositivesPerPhoto", ratio(falsePositives_, photos()).value_or(0)},
            {"smallFalsePositives", smallFalsePositives_},
            {"ignored", ignored_},
            {"emptyPhotos", emptyPhotos_},
            {"emptyFalsePositives", emptyFalsePositives_},
            {"refused", refused_},
            {"pointFaces", pointErrors_.size() + pointFacesMissed_},
            {"pointFacesMissed", pointFacesMissed_},
            {"pointFacesContradicted", pointFacesContradicted_},
            {"pointErrorMean", mean(pointErrors_)},
            {"pointErrorMeanOfAll", mean(allErrors)},
            {"pointErrorMedian", median(pointErrors_)},
            {"pointErrorOfEach", errorOfEach},
            {"millisecondsMean", mean(milliseconds_)},
            {"millisecondsMedian", median(milliseconds_)},
            {"profiles", {{"faces", profiles_.all}, {"found", profiles_.found}}},
            {"personBoxes", people}};
}

} // namespace veldan::eval
