#include "label_review.hpp"

#include "csv_table.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace veldan::eval {

namespace {

/** Labels are written with one digit behind the point. */
bool sameBox(const Box& a, const Box& b) {
    const double most = std::max(
        {std::abs(a.x - b.x), std::abs(a.y - b.y), std::abs(a.width - b.width), std::abs(a.height - b.height)});
    return most < 0.05;
}

} // namespace

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

} // namespace veldan::eval
