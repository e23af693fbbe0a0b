#ifndef VELDAN_TESTS_CLI_GALLERY_FILE_HPP
#define VELDAN_TESTS_CLI_GALLERY_FILE_HPP

#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>

/** A gallery as any SQLite program opens it. */
class GalleryFile {
public:
    explicit GalleryFile(const std::filesystem::path& path) : connection_(nullptr, sqlite3_close) {
        sqlite3* connection = nullptr;
        sqlite3_open(path.c_str(), &connection);
        connection_.reset(connection);
    }

    /** Runs statements. @return what the last row holds, columns separated by a bar */
    std::string run(const std::string& statements) {
        std::string row;
        const auto keep = [](void* text, int columns, char** values, char**) {
            auto& line = *static_cast<std::string*>(text);
            line.clear();
            for (int i = 0; i < columns; ++i)
                line += std::string(i == 0 ? "" : "|") + (values[i] == nullptr ? "" : values[i]);
            return 0;
        };
        if (sqlite3_exec(connection_.get(), statements.c_str(), keep, &row, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(connection_.get()));
        return row;
    }

private:
    std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection_;
};

#endif
