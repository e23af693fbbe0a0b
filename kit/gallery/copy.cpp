#include "gallery/copy.hpp"

#include "report/exit_codes.hpp"

namespace veldan::kit {

namespace {

constexpr std::size_t batchSize = 1000;

} // namespace

CopiedGallery copyGallery(GalleryStore& from, GalleryStore& to,
                          const std::function<void(std::size_t photos)>& progress) {
    if (from.recognizers() != to.recognizers())
        throw CommandError(ExitCode::Gallery, from.name() + " and " + to.name() +
                                                  ": made with different networks, whose templates cannot be "
                                                  "compared with each other");
    CopiedGallery copied;
    std::vector<PersonPhoto> batch;
    batch.reserve(batchSize);
    std::size_t passed = 0;
    const auto flush = [&] {
        for (const GalleryStore::Added added : to.add(batch))
            ++(added == GalleryStore::Added::New        ? copied.added
               : added == GalleryStore::Added::Repaired ? copied.repaired
                                                        : copied.unchanged);
        progress(passed);
        batch.clear();
        passed = 0;
    };
    from.forEach([&](const PersonPhoto& row) {
        ++passed;
        if (const std::string damage = damageOf(row.photo); !damage.empty())
            copied.unusable.push_back({row.person + ": " + row.photo.source, damage});
        else
            batch.push_back(row);
        if (passed == batchSize)
            flush();
    });
    flush();
    return copied;
}

} // namespace veldan::kit
