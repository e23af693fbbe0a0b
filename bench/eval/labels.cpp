#include "labels.hpp"

#include "csv_table.hpp"

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

} // namespace veldan::eval
