#include "commands.hpp"
#include "photo/annotate.hpp"
#include "photo/face_api.hpp"
#include "photo/face_text.hpp"
#include "photo/photo_entry.hpp"
#include "photo_run.hpp"

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

namespace veldan::cli {

namespace {

ExitCode detect(const PhotoOptions& options) {
    return PhotoRun(options).forEach({[](PhotoTask& task) {
                                          Photo photo = task.load();
                                          const FaceApi::Detection detection = task.api().detect(photo);
                                          task.addFaceCount(photo, detection.faces.size(), detection.milliseconds);
                                          for (const VDFACEINFOEX& face : detection.faces)
                                              task.addFace(detectionJson(face), detectionText(face));
                                          task.draw([&] {
                                              annotate(photo, {detection.faces.begin(), detection.faces.end()});
                                              return photo;
                                          });
                                          refuseCrowd(detection.faces.size());
                                      },
                                      {}});
}

} // namespace

void addDetectCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("detect", "Find faces: box, five points, eye distance");
    const auto options = std::make_shared<PhotoOptions>();
    addPhotoOptions(*command, *options, "Draw boxes and points");
    command->footer(
        std::string("Coordinates are pixels of the upright photo (EXIF orientation applied). Points: the eye "
                    "on the image's\nleft, the eye on its right, nose, the mouth corner on its left, the one "
                    "on its right. Faces: largest first.\n"
                    "\n") +
        exitCodeHelp() +
        "\n"
        "Examples:\n"
        "  veldan detect photo.jpg\n"
        "  veldan detect photo.jpg --draw faces.jpg\n"
        "  veldan detect --draw drawn/ *.jpg\n"
        "  veldan detect -r holidays/ --jobs auto\n"
        "  find . -name '*.jpg' -print0 | veldan detect --files-from - -0 --json > faces.json\n"
        "  curl -s https://example.org/photo.jpg | veldan detect - --draw - > drawn.png\n"
        "  veldan detect *.jpg --json | jq '.photos[] | {photo, faces: (.faces | length)}'\n");
    command->callback([options, &action] { action = [options] { return detect(*options); }; });
}

} // namespace veldan::cli
