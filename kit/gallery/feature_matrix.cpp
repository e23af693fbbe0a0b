#include "gallery/feature_matrix.hpp"

#include "gallery/template_file.hpp"
#include "report/exit_codes.hpp"
#include "report/json.hpp"
#include "system/file_bytes.hpp"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <string_view>

namespace veldan::kit {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t headerBytes = 128;

/** The head of an .npy file, always of the same length: the number of rows is known at the end. */
std::string npyHeader(std::size_t rows) {
    std::string header("\x93NUMPY\x01\x00", 8);
    constexpr std::size_t rest = headerBytes - 10;
    header += static_cast<char>(rest & 0xff);
    header += static_cast<char>(rest >> 8);
    header += "{'descr': '<f4', 'fortran_order': False, 'shape': (" + std::to_string(rows) + ", " +
              std::to_string(featureLength) + "), }";
    header.resize(headerBytes - 1, ' ');
    return header + '\n';
}

/** A file that gets its name at the end; removed without. */
class PendingFile {
public:
    explicit PendingFile(std::string path)
        : path_(std::move(path)), partial_(path_ + ".partial"),
          file_(::open(partial_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, forOwner)) {
        if (file_.get() < 0)
            fail();
    }
    ~PendingFile() {
        std::error_code error;
        if (!partial_.empty())
            fs::remove(partial_, error);
    }
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    void write(std::string_view bytes) {
        pending_ += bytes;
        if (pending_.size() >= 1 << 20)
            flush();
    }

    void overwriteBeginning(std::string_view bytes) {
        flush();
        if (::lseek(file_.get(), 0, SEEK_SET) != 0)
            fail();
        write(bytes);
    }

    void finish() {
        flush();
        if (std::rename(partial_.c_str(), path_.c_str()) != 0)
            fail();
        partial_.clear();
    }

private:
    void flush() {
        if (!writeAll(file_.get(), reinterpret_cast<const unsigned char*>(pending_.data()), pending_.size()))
            fail();
        pending_.clear();
    }

    [[noreturn]] void fail() const {
        throw CommandError(ExitCode::NotWritten, path_ + ": cannot be written: " + reasonOf(errno));
    }

    std::string path_;
    std::string partial_;
    FileDescriptor file_;
    std::string pending_;
};

} // namespace

WrittenFeatures writeFeatures(GalleryStore& store, Kind kind, const std::string& path) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    WrittenFeatures written;
    written.rowFile = fs::path(path).replace_extension(".jsonl").string();
    if (written.rowFile == path)
        throw CommandError(ExitCode::Usage, path + ": the name of the other file, which says whose the rows are");
    PendingFile matrix(path);
    PendingFile rows(written.rowFile);
    matrix.write(npyHeader(0));
    store.forEach([&](const PersonPhoto& row) {
        const auto& [person, photo] = row;
        if (const std::string damage = damageOf(photo); !damage.empty()) {
            written.unusable.push_back({person + ": " + photo.source, damage});
            return;
        }
        const Template& one = kind == Kind::Bare ? photo.bare : photo.masked;
        std::array<float, featureLength> feature{};
        TzDecode(static_cast<int>(kind), one.data(), static_cast<int>(one.size()),
                 reinterpret_cast<unsigned char*>(feature.data()));
        matrix.write({reinterpret_cast<const char*>(feature.data()), sizeof feature});
        rows.write(kit::written({{"name", person}, {"photo", photo.source}, {"digest", photo.digest}}, -1) + '\n');
        ++written.rows;
    });
    matrix.overwriteBeginning(npyHeader(written.rows));
    rows.finish();
    matrix.finish();
    return written;
}

} // namespace veldan::kit
