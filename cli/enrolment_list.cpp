#include "enrolment_list.hpp"

#include "gallery_store.hpp"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace veldan::cli {

namespace {

namespace fs = std::filesystem;

struct Folder {
    std::vector<fs::path> folders;
    std::vector<fs::path> files;
};

Folder read(const fs::path& path) {
    Folder folder;
    std::error_code error;
    fs::directory_iterator entries(path, error);
    for (; !error && entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path& entry = entries->path();
        if (entry.filename().string().front() == '.')
            continue;
        std::error_code ignored;
        (fs::is_directory(entry, ignored) ? folder.folders : folder.files).push_back(entry);
    }
    if (error)
        throw CommandError(ExitCode::Unreadable, path.string() + ": cannot be read: " + error.message());
    std::sort(folder.folders.begin(), folder.folders.end());
    std::sort(folder.files.begin(), folder.files.end());
    return folder;
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
        list.refused.push_back({path.string(), refusal});
        return;
    }
    const Folder folder = read(path);
    for (const fs::path& photo : folder.files)
        addPhoto(list, person, photo);
    for (const fs::path& inner : folder.folders)
        list.refused.push_back({inner.string(), "a folder within the folder of a person"});
    if (folder.files.empty())
        list.refused.push_back({path.string(), "no photos are in it"});
}

void addPersons(EnrolmentList& list, const fs::path& path) {
    const Folder folder = read(path);
    if (folder.folders.empty()) {
        addFolder(list, nameOf(path), path);
        return;
    }
    for (const fs::path& person : folder.folders)
        addFolder(list, person.filename().string(), person);
    for (const fs::path& file : folder.files)
        list.refused.push_back({file.string(), "not in the folder of a person"});
}

} // namespace

EnrolmentList enrolmentList(const std::string& name, const std::vector<std::string>& photos) {
    EnrolmentList list;
    if (photos.empty()) {
        if (!isFolder(name))
            throw CommandError(ExitCode::Usage, name + ": not a folder; give a name and photos of that person, or a "
                                                       "folder with a folder for each person");
        addPersons(list, name);
        return list;
    }
    if (const std::string refusal = refusalOfName(name); !refusal.empty())
        throw CommandError(ExitCode::Usage, "\"" + name + "\": " + refusal);
    for (const std::string& photo : photos) {
        if (isFolder(photo))
            addFolder(list, name, photo);
        else
            addPhoto(list, name, photo);
    }
    return list;
}

} // namespace veldan::cli
