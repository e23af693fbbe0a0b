#include "photo/heif.hpp"

#include "report/exit_codes.hpp"

#ifdef VELDAN_WITH_HEIF
#include <cstddef>
#include <libheif/heif.h>
#include <memory>
#include <string>
#endif

namespace veldan::kit {

#ifdef VELDAN_WITH_HEIF

namespace {

template <auto release>
struct Release {
    template <class T>
    void operator()(T* object) const {
        release(object);
    }
};

void require(const heif_error& error) {
    if (error.code != heif_error_Ok)
        throw CommandError(ExitCode::Unreadable, std::string("cannot be decoded: ") + error.message);
}

using Context = std::unique_ptr<heif_context, Release<heif_context_free>>;
using Handle = std::unique_ptr<heif_image_handle, Release<heif_image_handle_release>>;

/** The main picture of a file. The context has to outlive it. */
Handle mainPicture(const Context& context, const std::vector<unsigned char>& bytes) {
    require(heif_context_read_from_memory_without_copy(context.get(), bytes.data(), bytes.size(), nullptr));
    heif_image_handle* handle = nullptr;
    require(heif_context_get_primary_image_handle(context.get(), &handle));
    return Handle(handle);
}

} // namespace

std::optional<PictureSize> heifSize(const std::vector<unsigned char>& bytes) {
    const Context context(heif_context_alloc());
    try {
        const Handle handle = mainPicture(context, bytes);
        return PictureSize{static_cast<std::uint64_t>(heif_image_handle_get_width(handle.get())),
                           static_cast<std::uint64_t>(heif_image_handle_get_height(handle.get()))};
    } catch (const CommandError&) {
        return {};
    }
}

Photo decodeHeif(const std::vector<unsigned char>& bytes) {
    const Context context(heif_context_alloc());
    const Handle handle = mainPicture(context, bytes);
    requireSize(heif_image_handle_get_width(handle.get()), heif_image_handle_get_height(handle.get()));
    heif_image* rawImage = nullptr;
    // The transformations of the file, which turn the picture upright, are applied on the way.
    require(heif_decode_image(handle.get(), &rawImage, heif_colorspace_RGB, heif_chroma_interleaved_RGB, nullptr));
    const std::unique_ptr<heif_image, Release<heif_image_release>> image(rawImage);

    int stride = 0;
    const unsigned char* const plane = heif_image_get_plane_readonly(image.get(), heif_channel_interleaved, &stride);
    Photo photo;
    photo.width = heif_image_get_width(image.get(), heif_channel_interleaved);
    photo.height = heif_image_get_height(image.get(), heif_channel_interleaved);
    if (plane == nullptr || photo.width <= 0 || photo.height <= 0)
        throw CommandError(ExitCode::Unreadable, "cannot be decoded: there is no picture in it");
    photo.pixels.reserve(static_cast<std::size_t>(photo.width) * static_cast<std::size_t>(photo.height) * 3);
    for (int y = 0; y < photo.height; ++y) {
        const unsigned char* pixel = plane + static_cast<std::ptrdiff_t>(y) * stride;
        for (int x = 0; x < photo.width; ++x, pixel += 3)
            photo.pixels.insert(photo.pixels.end(), {pixel[2], pixel[1], pixel[0]});
    }
    return photo;
}

#else

std::optional<PictureSize> heifSize(const std::vector<unsigned char>& /*bytes*/) {
    return {};
}

Photo decodeHeif(const std::vector<unsigned char>& /*bytes*/) {
    throw CommandError(ExitCode::Unreadable, "a HEIC or AVIF picture; this command was built without libheif");
}

#endif

} // namespace veldan::kit
