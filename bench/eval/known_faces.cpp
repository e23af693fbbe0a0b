#include "known_faces.hpp"

#include <algorithm>
#include <cstddef>

namespace veldan::eval {

namespace {

std::string classInName(const std::string& file) {
    for (const std::string& category : {withMask, withoutMask, maskWornWrong}) {
        if (file.rfind(category + "_", 0) == 0)
            return category;
    }
    return "";
}

double sizeOf(const Box& box) {
    return sizeOf(box, SizeMeasure::Geometric);
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
    std::vector<Box> teachers;
    teachers.reserve(faces.size());
    for (const PointedFace& face : faces)
        teachers.push_back(face.box);
    std::vector<Box> people;
    for (const PersonBox& person : labels.personBoxes)
        people.push_back(person.box);
    const auto assignment = assignBoxes(teachers, people, leastOverlap);
    for (std::size_t i = 0; i < faces.size(); ++i) {
        if (assignment[i])
            faces[i].category = labels.personBoxes[*assignment[i]].category;
    }
}

} // namespace

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
