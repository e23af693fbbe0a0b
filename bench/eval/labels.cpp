#include "labels.hpp"

#include "csv_table.hpp"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>

namespace veldan::eval {

namespace fs = std::filesystem;

std::vector<std::string> packNames(const fs::path& folder) {
    static const std::string ending = ".images.csv";
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const std::string file = entry.path().filename().string();
        if (file.size() > ending.size() && file.compare(file.size() - ending.size(), ending.size(), ending) == 0)
            names.push_back(file.substr(0, file.size() - ending.size()));
    }
    std::sort(names.begin(), names.end());
    return names;
}

Pack readPack(const fs::path& folder, const std::string& name) {
    Pack pack;
    pack.name = name;
    std::unordered_map<std::string, std::size_t> index;
    readTable(folder / (name + ".images.csv"), 4, [&](const TableRow& row) {
        if (!index.emplace(row.text(0), pack.photos.size()).second)
            row.fail(row.text(0) + " occurs twice");
        LabelledPhoto photo;
        photo.file = row.text(0);
        photo.width = static_cast<int>(row.number(1));
        photo.height = static_cast<int>(row.number(2));
        photo.split = row.text(3);
        pack.photos.push_back(std::move(photo));
    });
    const auto photoOf = [&](const TableRow& row) -> LabelledPhoto& {
        const auto found = index.find(row.text(0));
        if (found == index.end())
            row.fail(row.text(0) + " is not in the list of images");
        return pack.photos[found->second];
    };
    readTable(folder / (name + ".labels.csv"), 16, [&](const TableRow& row) {
        photoOf(row).faces.push_back({row.box(1), row.points(5), row.number(15)});
    });
    if (const fs::path path = folder / (name + ".landmarks.csv"); fs::exists(path))
        readTable(path, 11, [&](const TableRow& row) { photoOf(row).personPoints = row.points(1); });
    if (const fs::path path = folder / (name + ".masks.csv"); fs::exists(path))
        readTable(path, 6, [&](const TableRow& row) { photoOf(row).personBoxes.push_back({row.box(1), row.text(5)}); });
    return pack;
}

} // namespace veldan::eval
