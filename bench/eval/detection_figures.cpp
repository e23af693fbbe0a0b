#include "detection_figures.hpp"

#include "statistics.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>

namespace veldan::eval {

namespace {

std::vector<Box> boxesOf(const std::vector<FoundFace>& faces) {
    std::vector<Box> boxes;
    boxes.reserve(faces.size());
    for (const FoundFace& face : faces)
        boxes.push_back(face.box);
    return boxes;
}

} // namespace

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
                           double pictureHeight, const DetectionRules& rules, double milliseconds) {
    const PhotoVerdict verdict = judge(found, labels, pictureWidth, pictureHeight, rules);
    ++photos_;
    milliseconds_.push_back(milliseconds);
    faces_ += verdict.wanted.size();
    facesFound_ += static_cast<std::size_t>(std::count(verdict.wantedFound.begin(), verdict.wantedFound.end(), true));

    for (std::size_t w = 0; w < verdict.wanted.size(); ++w) {
        if (verdict.wantedProfile[w]) {
            ++profiles_.boxes;
            profiles_.found += verdict.wantedFound[w] ? 1 : 0;
        }
    }

    std::size_t falseHere = 0;
    for (std::size_t f = 0; f < found.size(); ++f) {
        if (verdict.found[f] == Verdict::Ignored)
            ++ignored_;
        if (verdict.found[f] != Verdict::False)
            continue;
        ++falseHere;
        if (sizeOf(found[f].box, rules.measure) < rules.leastSize)
            ++smallFalsePositives_;
    }
    falsePositives_ += falseHere;
    if (labels.faces.empty() && labels.personBoxes.empty() && !labels.personPoints) {
        ++emptyPhotos_;
        emptyFalsePositives_ += falseHere;
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
        const auto assignment = assignBoxes(boxesOf(found), boxes, rules.leastOverlap);
        Count& count = personBoxes_[category];
        count.boxes += boxes.size();
        count.found += static_cast<std::size_t>(
            std::count_if(assignment.begin(), assignment.end(), [](const auto& box) { return box.has_value(); }));
    }
}

void DetectionFigures::add(const DetectionFigures& other) {
    photos_ += other.photos_;
    faces_ += other.faces_;
    facesFound_ += other.facesFound_;
    falsePositives_ += other.falsePositives_;
    smallFalsePositives_ += other.smallFalsePositives_;
    ignored_ += other.ignored_;
    emptyPhotos_ += other.emptyPhotos_;
    emptyFalsePositives_ += other.emptyFalsePositives_;
    refused_ += other.refused_;
    pointFacesMissed_ += other.pointFacesMissed_;
    pointFacesContradicted_ += other.pointFacesContradicted_;
    pointErrors_.insert(pointErrors_.end(), other.pointErrors_.begin(), other.pointErrors_.end());
    contradictedErrors_.insert(contradictedErrors_.end(), other.contradictedErrors_.begin(),
                               other.contradictedErrors_.end());
    for (std::size_t k = 0; k < pointErrorSums_.size(); ++k)
        pointErrorSums_[k] += other.pointErrorSums_[k];
    milliseconds_.insert(milliseconds_.end(), other.milliseconds_.begin(), other.milliseconds_.end());
    profiles_.boxes += other.profiles_.boxes;
    profiles_.found += other.profiles_.found;
    for (const auto& [category, count] : other.personBoxes_) {
        personBoxes_[category].boxes += count.boxes;
        personBoxes_[category].found += count.found;
    }
}

double DetectionFigures::recall() const {
    return faces_ == 0 ? 1 : static_cast<double>(facesFound_) / static_cast<double>(faces_);
}

double DetectionFigures::falsePositivesPerPhoto() const {
    return photos_ == 0 ? 0 : static_cast<double>(falsePositives_) / static_cast<double>(photos_);
}

double DetectionFigures::pointErrorMean() const {
    return mean(pointErrors_);
}

double DetectionFigures::pointErrorMeanOfAll() const {
    std::vector<double> all = pointErrors_;
    all.insert(all.end(), contradictedErrors_.begin(), contradictedErrors_.end());
    return mean(all);
}

double DetectionFigures::pointErrorMedian() const {
    return median(pointErrors_);
}

std::array<double, 5> DetectionFigures::pointErrorOfEach() const {
    std::array<double, 5> result = pointErrorSums_;
    for (double& value : result)
        value = pointErrors_.empty() ? 0 : value / static_cast<double>(pointErrors_.size());
    return result;
}

double DetectionFigures::millisecondsMean() const {
    return mean(milliseconds_);
}

double DetectionFigures::millisecondsMedian() const {
    return median(milliseconds_);
}

nlohmann::ordered_json DetectionFigures::toJson() const {
    nlohmann::ordered_json people = nlohmann::ordered_json::object();
    for (const auto& [category, count] : personBoxes_)
        people[category] = {{"boxes", count.boxes}, {"found", count.found}};
    return {{"photos", photos_},
            {"faces", faces_},
            {"facesFound", facesFound_},
            {"recall", recall()},
            {"falsePositives", falsePositives_},
            {"falsePositivesPerPhoto", falsePositivesPerPhoto()},
            {"smallFalsePositives", smallFalsePositives_},
            {"ignored", ignored_},
            {"emptyPhotos", emptyPhotos_},
            {"emptyFalsePositives", emptyFalsePositives_},
            {"refused", refused_},
            {"pointFaces", pointFaces()},
            {"pointFacesMissed", pointFacesMissed_},
            {"pointFacesContradicted", pointFacesContradicted_},
            {"pointErrorMean", pointErrorMean()},
            {"pointErrorMeanOfAll", pointErrorMeanOfAll()},
            {"pointErrorMedian", pointErrorMedian()},
            {"pointErrorOfEach", pointErrorOfEach()},
            {"millisecondsMean", millisecondsMean()},
            {"millisecondsMedian", millisecondsMedian()},
            {"profiles", {{"faces", profiles_.boxes}, {"found", profiles_.found}}},
            {"personBoxes", people}};
}

LabelledPhoto scaled(const LabelledPhoto& labels, double sx, double sy) {
    LabelledPhoto result = labels;
    for (TeacherFace& face : result.faces) {
        face.box = scaled(face.box, sx, sy);
        face.points = scaled(face.points, sx, sy);
    }
    for (PersonBox& person : result.personBoxes)
        person.box = scaled(person.box, sx, sy);
    if (result.personPoints) {
        for (Point& point : *result.personPoints)
            point = {(point.x + 0.5) * sx - 0.5, (point.y + 0.5) * sy - 0.5};
    }
    return result;
}

} // namespace veldan::eval
