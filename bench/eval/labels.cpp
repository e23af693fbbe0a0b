#include "labels.hpp"

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <unordered_map>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

/** One line of a table, with its place for messages. */
class Row {
public:
    Row(const fs::path& path, std::size_t line, const std::string& text) : path_(path), line_(line) {
        std::istringstream stream(text);
        for (std::string field; std::getline(stream, field, ',');)
            fields_.push_back(field);
    }

    std::size_t size() const { return fields_.size(); }
    const std::string& text(std::size_t i) const { return fields_[i]; }

    double number(std::size_t i) const {
        std::size_t used = 0;
        double value = 0;
        try {
            value = std::stod(fields_[i], &used);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used == 0 || used != fields_[i].size())
            fail("\"" + fields_[i] + "\" is not a number");
        return value;
    }

    Box box(std::size_t first) const {
        return {number(first), number(first + 1), number(first + 2), number(first + 3)};
    }

    FivePoints points(std::size_t first) const {
        FivePoints points;
        for (Point& point : points) {
            point = {number(first), number(first + 1)};
            first += 2;
        }
        return points;
    }

    [[noreturn]] void fail(const std::string& message) const {
        throw std::runtime_error(path_.string() + ":" + std::to_string(line_) + ": " + message);
    }

private:
    const fs::path& path_;
    std::size_t line_;
    std::vector<std::string> fields_;
};

void readTable(const fs::path& path, std::size_t columns, const std::function<void(const Row&)>& use) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error(path.string() + ": cannot be opened");
    std::string text;
    for (std::size_t line = 1; std::getline(file, text); ++line) {
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        if (text.empty() || (line == 1 && text.rfind("file,", 0) == 0))
            continue;
        const Row row(path, line, text);
        if (row.size() != columns)
            row.fail(std::to_string(row.size()) + " fields instead of " + std::to_string(columns));
        use(row);
    }
}

} // namespace

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
    readTable(folder / (name + ".images.csv"), 4, [&](const Row& row) {
        if (!index.emplace(row.text(0), pack.photos.size()).second)
            row.fail(row.text(0) + " occurs twice");
        LabelledPhoto photo;
        photo.file = row.text(0);
        photo.width = static_cast<int>(row.number(1));
        photo.height = static_cast<int>(row.number(2));
        photo.split = row.text(3);
        pack.photos.push_back(std::move(photo));
    });
    const auto photoOf = [&](const Row& row) -> LabelledPhoto& {
        const auto found = index.find(row.text(0));
        if (found == index.end())
            row.fail(row.text(0) + " is not in the list of images");
        return pack.photos[found->second];
    };
    readTable(folder / (name + ".labels.csv"), 16, [&](const Row& row) {
        photoOf(row).faces.push_back({row.box(1), row.points(5), row.number(15)});
    });
    if (const fs::path path = folder / (name + ".landmarks.csv"); fs::exists(path))
        readTable(path, 11, [&](const Row& row) { photoOf(row).personPoints = row.points(1); });
    if (const fs::path path = folder / (name + ".masks.csv"); fs::exists(path))
        readTable(path, 6, [&](const Row& row) { photoOf(row).personBoxes.push_back({row.box(1), row.text(5)}); });
    return pack;
}

} // namespace veldan::eval
