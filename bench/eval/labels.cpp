#include "labels.hpp"

#include "tables.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <stdexcept>
#include <unordered_map>

namespace veldan::eval {

namespace fs = std::filesystem;

namespace {

/** In an image that stands upright the mouth lies below the eyes, within 50 degrees. */
bool isUpright(const FivePoints& points) {
    const double across = (points[3].x + points[4].x - points[0].x - points[1].x) / 2;
    const double down = (points[3].y + points[4].y - points[0].y - points[1].y) / 2;
    return std::abs(std::atan2(across, down)) < 50 * M_PI / 180;
}

/** Of a teacher that looked at the photo and at its mirror image. */
bool isFace(double score, double mirrored) {
    const auto [low, high] = std::minmax(score, mirrored);
    return low >= 0.5 || (high >= 0.7 && low >= 0.3);
}

using PhotoOfRow = std::function<LabelledPhoto&(const TableRow&)>;

PhotoOfRow readImages(const fs::path& path, bool sizes, Pack& pack) {
    const auto index = std::make_shared<std::unordered_map<std::string, std::size_t>>();
    readTable(path, 4, [&](const TableRow& row) {
        if (!index->emplace(row.text(0), pack.photos.size()).second)
            row.fail(row.text(0) + " occurs twice");
        LabelledPhoto photo;
        photo.file = row.text(0);
        if (sizes) {
            photo.width = static_cast<int>(row.number(1));
            photo.height = static_cast<int>(row.number(2));
        }
        photo.split = row.text(3);
        pack.photos.push_back(std::move(photo));
    });
    return [index, &pack](const TableRow& row) -> LabelledPhoto& {
        const auto found = index->find(row.text(0));
        if (found == index->end())
            row.fail(row.text(0) + " is not in the list of images");
        return pack.photos[found->second];
    };
}

/** Labels are written with one digit behind the point. */
bool sameBox(const Box& a, const Box& b) {
    const double most = std::max(
        {std::abs(a.x - b.x), std::abs(a.y - b.y), std::abs(a.width - b.width), std::abs(a.height - b.height)});
    return most < 0.05;
}

std::string classInName(const std::string& file) {
    for (const std::string& category : {withMask, withoutMask, maskWornWrong}) {
        if (file.rfind(category + "_", 0) == 0)
            return category;
    }
    return "";
}

std::vector<PointedFace> allFaces(const LabelledPhoto& labels, const FaceRules& rules) {
    std::vector<PointedFace> faces;
    for (const TeacherFace& face : labels.faces) {
        if (face.score >= rules.faceScore)
            faces.push_back({face.box, face.points, std::nullopt, ""});
    }
    return faces;
}

std::vector<PointedFace>::iterator largest(std::vector<PointedFace>& faces) {
    return std::max_element(faces.begin(), faces.end(),
                            [](const PointedFace& a, const PointedFace& b) { return sizeOf(a.box) < sizeOf(b.box); });
}

void usePointsByPeople(std::vector<PointedFace>& faces, const FivePoints& points) {
    const auto away = [&](const PointedFace& face) { return distance(centroid(face.points), centroid(points)); };
    const auto nearest = std::min_element(
        faces.begin(), faces.end(), [&](const PointedFace& a, const PointedFace& b) { return away(a) < away(b); });
    if (nearest != faces.end() && away(*nearest) <= nearest->box.height / 5) {
        nearest->replacedPoints = nearest->points;
        nearest->points = points;
    }
}

void useClassesByPeople(std::vector<PointedFace>& faces, const LabelledPhoto& labels, double leastOverlap) {
    const auto assignment = assignBoxes(boxesOf(faces), boxesOf(labels.personBoxes), leastOverlap);
    for (std::size_t i = 0; i < faces.size(); ++i) {
        if (assignment[i])
            faces[i].category = labels.personBoxes[*assignment[i]].category;
    }
}

} // namespace

std::vector<std::string> packNames(const fs::path& folder) {
    static const std::string ending = ".csv";
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const fs::path file = entry.path().filename();
        const std::string name = file.stem().string();
        if (file.extension() != ending)
            continue;
        if (fs::path(name).extension() == ".images")
            names.push_back(fs::path(name).stem().string());
        else if (fs::exists(folder / (name + ".labels.csv")) && !fs::exists(folder / (name + ".images.csv")))
            names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

Pack readPack(const fs::path& folder, const std::string& name) {
    Pack pack;
    pack.name = name;
    const fs::path images = folder / (name + ".images.csv");
    if (!fs::exists(images) && fs::exists(folder / (name + ".csv"))) {
        const PhotoOfRow photoOf = readImages(folder / (name + ".csv"), false, pack);
        readTable(folder / (name + ".labels.csv"), 17, [&](const TableRow& row) {
            const FivePoints points = row.points(5);
            const bool face = isFace(row.number(15), row.number(16)) && isUpright(points);
            photoOf(row).faces.push_back({row.box(1), points, face ? 1.0 : 0.0});
        });
        return pack;
    }
    const PhotoOfRow photoOf = readImages(images, true, pack);
    readTable(folder / (name + ".labels.csv"), 16, [&](const TableRow& row) {
        photoOf(row).faces.push_back({row.box(1), row.points(5), row.number(15)});
    });
    if (const fs::path path = folder / (name + ".landmarks.csv"); fs::exists(path))
        readTable(path, 11, [&](const TableRow& row) { photoOf(row).personPoints = row.points(1); });
    if (const fs::path path = folder / (name + ".masks.csv"); fs::exists(path))
        readTable(path, 6, [&](const TableRow& row) { photoOf(row).personBoxes.push_back({row.box(1), row.text(5)}); });
    return pack;
}

bool isProfile(const FivePoints& points) {
    const double x = points[1].x - points[0].x, y = points[1].y - points[0].y;
    const double along = (points[2].x - points[0].x) * x + (points[2].y - points[0].y) * y;
    return along < 0 || along > x * x + y * y;
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

LabelReview::LabelReview(const std::filesystem::path& path, const std::vector<std::string>& packs) {
    readTable(path, 7, [&](const TableRow& row) {
        faults_.push_back({row.place(), row.text(0), row.choice(1, packs), row.box(2),
                           row.choice(6, {"no_face", "part"}) == "no_face"});
    });
}

void LabelReview::apply(Pack& pack) {
    for (const Fault& fault : faults_) {
        if (fault.pack != pack.name)
            continue;
        const auto photo = std::find_if(pack.photos.begin(), pack.photos.end(),
                                        [&](const LabelledPhoto& one) { return one.file == fault.file; });
        if (photo == pack.photos.end())
            throw std::runtime_error(fault.place + ": " + fault.file + " is not in pack " + pack.name);
        const auto face = std::find_if(photo->faces.begin(), photo->faces.end(),
                                       [&](const TeacherFace& one) { return sameBox(one.box, fault.box); });
        if (face == photo->faces.end())
            throw std::runtime_error(fault.place + ": " + fault.file + " has no label with this box");
        if (fault.noFace) {
            photo->faces.erase(face);
            ++noFaces_;
        } else {
            face->score = 0;
            ++parts_;
        }
    }
}

std::vector<PointedFace> facesWithPoints(const LabelledPhoto& labels, const FaceRules& rules) {
    std::vector<PointedFace> faces = allFaces(labels, rules);
    if (labels.personPoints)
        usePointsByPeople(faces, *labels.personPoints);
    if (const auto face = largest(faces); face != faces.end())
        face->category = classInName(labels.file);
    useClassesByPeople(faces, labels, rules.leastOverlap);
    faces.erase(std::remove_if(faces.begin(), faces.end(),
                               [&](const PointedFace& face) { return sizeOf(face.box) < rules.leastSize; }),
                faces.end());
    return faces;
}

std::vector<ClassedFace> facesWithClass(const LabelledPhoto& labels, const FaceRules& rules) {
    std::vector<ClassedFace> result;
    for (const PersonBox& person : labels.personBoxes) {
        if (sizeOf(person.box) >= rules.leastSize)
            result.push_back({person.box, person.category});
    }
    const std::string category = classInName(labels.file);
    if (!labels.personBoxes.empty() || category.empty())
        return result;
    std::vector<PointedFace> faces = allFaces(labels, rules);
    const auto face = largest(faces);
    if (face == faces.end())
        result.push_back({std::nullopt, category});
    else if (sizeOf(face->box) >= rules.leastSize)
        result.push_back({face->box, category});
    return result;
}

} // namespace veldan::eval
