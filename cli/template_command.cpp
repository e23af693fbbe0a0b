#include "commands.hpp"
#include "gallery/template_file.hpp"
#include "options.hpp"
#include "photo/face_api.hpp"
#include "photo/largest_face.hpp"
#include "report/json.hpp"
#include "report/messages.hpp"
#include "report/printable.hpp"
#include "report/text.hpp"
#include "system/file_bytes.hpp"

#include <veldan/veldan.hpp>

#include <CLI/CLI.hpp>

#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace veldan::cli {

namespace {

namespace fs = std::filesystem;

struct TemplateOptions {
    std::string photo;
    std::string out;
    std::string file;
    bool masked = false;
    bool json = false;
};

/** Failures of one file carry its name, as in commands with several. */
template <class Work>
auto about(const std::string& path, const Work& work) {
    try {
        return work();
    } catch (const CommandError& error) {
        throw CommandError(error.code(), path + ": " + error.what());
    }
}

void print(const std::string& path, const TemplateReport& report, bool json) {
    if (json) {
        Json document = {{"version", VELDAN_VERSION}, {"file", path}, {"bytes", report.bytes}};
        if (!report.kind.empty()) {
            document["kind"] = report.kind;
            document["checksum"] = report.checksumHolds;
            document["length"] = featureLength;
            document["norm"] = report.norm; // null when it is not a number
        }
        if (!report.damage.empty())
            document["error"] = failureJson(ExitCode::Unreadable, report.damage);
        std::cout << written(document) << '\n';
    } else if (!report.kind.empty()) {
        std::cout << printable(path) << ": template of a " << report.kind << " face  (" << report.bytes << " bytes)\n"
                  << "      checksum " << (report.checksumHolds ? "holds" : "does not hold") << "  " << featureLength
                  << " values  norm " << fixed(report.norm, 3) << '\n';
    }
}

ExitCode inform(const TemplateOptions& options) {
    const TemplateReport report = examineTemplate(about(options.file, [&] { return readFile(options.file); }));
    print(options.file, report, options.json);
    if (!report.damage.empty()) {
        std::cout.flush();
        throw CommandError(ExitCode::Unreadable, options.file + ": " + report.damage).markInOutput();
    }
    return ExitCode::Success;
}

ExitCode extract(const TemplateOptions& options) {
    FaceApi api(0);
    Photo photo = about(options.photo, [&] { return loadPhoto(options.photo); });
    const LargestFace largest = about(options.photo, [&] { return largestFace(api, photo); });
    if (largest.of > 1)
        tellUser(options.photo + ": " + faceCount(largest.of) + "; the largest one is taken");
    if (largest.face.masked && !options.masked)
        tellUser(options.photo + ": the face wears a mask; --mask makes the template for that");
    const Kind kind = options.masked ? Kind::Masked : Kind::Bare;
    const Template feature =
        about(options.photo, [&] { return templateOf(api.instance(), photo, largest.face, kind); });
    if (options.out == "-") {
        std::cout.write(reinterpret_cast<const char*>(feature.data()), static_cast<std::streamsize>(feature.size()));
        return ExitCode::Success;
    }
    std::error_code error;
    if (fs::equivalent(options.photo, options.out, error))
        throw CommandError(ExitCode::NotWritten, "writing " + options.out + " would overwrite the photo");
    about(options.out, [&] { writeFile(options.out, feature.data(), feature.size(), forOwner); });
    return ExitCode::Success;
}

} // namespace

void addTemplateCommand(CLI::App& app, Action& action) {
    CLI::App* command =
        app.add_subcommand("template", "Make the template of a face, or tell what is in a template file");
    const auto options = std::make_shared<TemplateOptions>();
    CLI::Option* photo = command->add_option("PHOTO", options->photo, "A photo; its largest face is taken");
    CLI::Option* out =
        command
            ->add_option("-o,--output", options->out, "The file for the template, 520 bytes; - is the standard output")
            ->type_name("FILE");
    photo->type_name("");
    command->add_flag("--mask", options->masked, "The kind that faces with masks are compared by");
    command->footer(
        "match, enroll and identify take template files where they take photos, whatever the files are called.\n"
        "\n"
        "Exit codes: 0 done; 3 the file does not exist; 4 it cannot be read, or is damaged; 5 the photo is too\n"
        "small; 7 the template could not be written; 8 the library did not start; 9 a photo without a face.\n"
        "\n"
        "Examples:\n"
        "  veldan template photo.jpg -o photo.tpl\n"
        "  veldan template photo.jpg -o photo-mask.tpl --mask\n"
        "  veldan template photo.jpg -o - | ssh host veldan match - visitor.jpg\n"
        "  veldan template info photo.tpl\n"
        "A photo that is called info: veldan template ./info -o FILE\n");
    CLI::App* info = command->add_subcommand("info", "Tell kind, checksum and size of a template file");
    info->add_option("FILE", options->file, "A template file")->required()->type_name("");
    addJsonFlag(*info, options->json);
    info->callback([options, &action] { action = [options] { return inform(*options); }; });
    // Only without info the photo and the output are needed, so this cannot be left to the options.
    command->callback([options, info, photo, out, &action] {
        if (info->parsed())
            return;
        for (const CLI::Option* option : {photo, out})
            if (option->empty())
                throw CLI::RequiredError(option->get_name());
        action = [options] { return extract(*options); };
    });
}

} // namespace veldan::cli
