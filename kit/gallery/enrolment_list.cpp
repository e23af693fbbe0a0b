#include "gallery/enrolment_list.hpp"

#include "gallery/store.hpp"
#include "gallery/template_file.hpp"
#include "system/file_bytes.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

namespace veldan::kit {

namespace {

namespace fs = std::filesystem;

struct Folder {
    std::vector<fs::path> folders;
    std::vector<fs::path> files;
};

/** @return false when the folder cannot be read, which the list then says */
bool read(EnrolmentList& list, const fs::path& path, Folder& folder) {
    std::error_code error;
    fs::directory_iterator entries(path, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path& entry = entries->path();
        if (entry.filename().string().front() == '.')
            continue;
        std::error_code ignored;
        (fs::is_directory(entry, ignored) ? folder.folders : folder.files).push_back(entry);
    }
    if (error) {
        list.refused.push_back({path.string(), "cannot be read: " + error.message(), ExitCode::Unreadable});
        return false;
    }
    std::sort(folder.folders.begin(), folder.folders.end());
    std::sort(folder.files.begin(), folder.files.end());
    return true;
}

bool isFolder(const fs::path& path) {
    std::error_code error;
    return fs::is_directory(path, error);
}

/** The last part of a path, which may end in a slash or be ".". */
std::string nameOf(const fs::path& folder) {
    const fs::path path = fs::absolute(folder).lexically_normal();
    return (path.has_filename() ? path : path.parent_path()).filename().string();
}

void addPhoto(EnrolmentList& list, const std::string& person, const fs::path& photo) {
    list.photos.push_back(photo.string());
    list.persons.push_back(person);
}

void addFolder(EnrolmentList& list, const std::string& person, const fs::path& path) {
    if (const std::string refusal = refusalOfName(person); !refusal.empty()) {
        list.refused.push_back({path.string(), refusal, ExitCode::Unsuitable});
        return;
    }
    Folder folder;
    if (!read(list, path, folder))
        return;
    for (const fs::path& photo : folder.files)
        addPhoto(list, person, photo);
    for (const fs::path& inner : folder.folders)
        list.refused.push_back({inner.string(), "a folder within the folder of a person", ExitCode::Unsuitable});
    if (folder.files.empty())
        list.refused.push_back({path.string(), "no photos are in it", ExitCode::Unsuitable});
}

void addPersons(EnrolmentList& list, const fs::path& path) {
    Folder folder;
    if (!read(list, path, folder))
        return;
    if (folder.folders.empty()) {
        const std::string name = nameOf(path);
        addFolder(list, name, path);
        if (folder.files.size() > 1)
            list.remark = path.string() + ": holds no folders, so all of its " + std::to_string(folder.files.size()) +
                          " photos are taken for those of one person, \"" + name +
                          "\"; several people need a folder each";
        return;
    }
    for (const fs::path& person : folder.folders)
        addFolder(list, person.filename().string(), person);
    for (const fs::path& file : folder.files)
        list.refused.push_back({file.string(), "not in the folder of a person", ExitCode::Unsuitable});
}

/** The kind of a whole template in a file; nothing for every other file. */
std::optional<Kind> templateKind(const std::string& path) {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) != templateBytes)
        return std::nullopt;
    try {
        return readTemplate(readFile(path)).kind;
    } catch (const CommandError&) {
        return std::nullopt; // enrolment says what is wrong with it
    }
}

void pairTemplates(EnrolmentList& list) {
    EnrolmentList paired;
    std::map<std::string, std::vector<std::size_t>> bare; // where those of a person wait for their counterparts
    std::map<std::string, std::vector<std::size_t>> masked;
    for (std::size_t i = 0; i < list.photos.size(); ++i) {
        if (const std::optional<Kind> kind = templateKind(list.photos[i]))
            (*kind == Kind::Bare ? bare : masked)[list.persons[i]].push_back(i);
    }
    std::vector<std::string> counterpart(list.photos.size());
    std::vector<bool> taken(list.photos.size());
    for (const auto& [person, indices] : bare) {
        const std::vector<std::size_t>& others = masked[person];
        for (std::size_t i = 0; i < std::min(indices.size(), others.size()); ++i) {
            counterpart[indices[i]] = list.photos[others[i]];
            taken[others[i]] = true;
        }
    }
    for (std::size_t i = 0; i < list.photos.size(); ++i) {
        if (taken[i])
            continue;
        paired.photos.push_back(list.photos[i]);
        paired.persons.push_back(list.persons[i]);
        paired.maskTemplates.push_back(counterpart[i]);
    }
    list.photos = std::move(paired.photos);
    list.persons = std::move(paired.persons);
    list.maskTemplates = std::move(paired.maskTemplates);
}

void readArguments(EnrolmentList& list, const std::string& name, const std::vector<std::string>& photos) {
    if (photos.empty()) {
        if (!isFolder(name))
            throw CommandError(ExitCode::Usage, name + ": not a folder; give a name and photos of that person, or a "
                                                       "folder with a folder for each person");
        addPersons(list, name);
        return;
    }
    if (const std::string refusal = refusalOfName(name); !refusal.empty())
        throw CommandError(ExitCode::Usage, "\"" + name + "\": " + refusal);
    for (const std::string& photo : photos) {
        if (isFolder(photo))
            addFolder(list, name, photo);
        else
            addPhoto(list, name, photo);
    }
}

} // namespace

EnrolmentList enrolmentList(const std::string& name, const std::vector<std::string>& photos) {
    EnrolmentList list;
    readArguments(list, name, photos);
    pairTemplates(list);
    return list;
}

} // namespace veldan::kit
