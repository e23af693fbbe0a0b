#include "gallery_file.hpp"
#include "photo_results.hpp"
#include "running_command.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using Json = nlohmann::json;
namespace fs = std::filesystem;

// A name beyond ASCII, in UTF-8.
const std::string zoe = "Zo\xC3\xAB";

CommandResult withGallery(std::vector<std::string> command, const fs::path& gallery,
                          const std::vector<std::string>& arguments) {
    command.insert(command.end(), {"--gallery", gallery.string()});
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runVeldan(command);
}

CommandResult enroll(const fs::path& gallery, const std::vector<std::string>& arguments) {
    return withGallery({"enroll"}, gallery, arguments);
}

Json enrollJson(const fs::path& gallery, const std::vector<std::string>& arguments) {
    return Json::parse(withGallery({"enroll", "--json"}, gallery, arguments).output);
}

Json shownPersons(const fs::path& gallery) {
    const CommandResult result = withGallery({"gallery", "show", "--json"}, gallery, {});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return Json::parse(result.output).at("persons");
}

/** Every photo as "person: file name". */
std::vector<std::string> content(const fs::path& gallery) {
    std::vector<std::string> rows;
    for (const Json& person : shownPersons(gallery)) {
        for (const Json& photo : person.at("photos"))
            rows.push_back(person.at("name").get<std::string>() + ": " +
                           fs::path(photo.at("photo").get<std::string>()).filename().string());
    }
    return rows;
}

/** The only face of a photo. */
Json identified(const fs::path& gallery, const std::string& photo, const std::vector<std::string>& options = {}) {
    std::vector<std::string> arguments = {"--json", photo};
    arguments.insert(arguments.end(), options.begin(), options.end());
    const CommandResult result = withGallery({"identify"}, gallery, arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return Json::parse(result.output).at("photos").at(0).at("faces").at(0);
}

/** A gallery of the two persons of the example photos, bare. */
class TwoPersons : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(enroll(gallery, {"First", bundled("first-bare.webp")}).exitCode, 0);
        ASSERT_EQ(enroll(gallery, {zoe, bundled("second-bare.webp")}).exitCode, 0);
    }

    ScratchFolder folder;
    fs::path gallery = folder / "gallery.db";
};

TEST_F(TwoPersons, AreIdentifiedBareAndWithMasks) {
    const Json face = identified(gallery, bundled("second-bare.webp"));
    EXPECT_EQ(face.at("name"), zoe);
    EXPECT_NEAR(face.at("similarity").get<double>(), 1, 1e-5);
    EXPECT_EQ(face.at("kind"), "bare");
    EXPECT_EQ(face.at("masked"), false);
    EXPECT_EQ(face.at("points").size(), 5u);
    EXPECT_GT(face.at("quality").get<int>(), 50);
    EXPECT_GE(face.at("liveness").get<int>(), 0);

    cv::Mat mirrored;
    cv::flip(cv::imread(bundled("first-bare.webp")), mirrored, 1);
    const std::string mirror = (folder / "mirror.png").string();
    cv::imwrite(mirror, mirrored);
    EXPECT_EQ(identified(gallery, mirror).at("name"), "First");
    EXPECT_EQ(identified(gallery, mirror, {"--threshold", "100"}).at("name"), nullptr);

    const Json masked = identified(gallery, bundled("first-mask.webp"), {"--mask-threshold", "0"});
    EXPECT_EQ(masked.at("kind"), "masked");
    EXPECT_NE(masked.at("name"), nullptr);
    const Json stranger = identified(gallery, bundled("first-mask.webp"), {"--mask-threshold", "100", "--threshold=0"});
    EXPECT_EQ(stranger.at("name"), nullptr);
    EXPECT_EQ(stranger.at("similarity"), masked.at("similarity"));
}

// The template of the first person's masked face is given to the second one: masked faces follow it, bare ones do not.
TEST_F(TwoPersons, HaveTemplatesOfEitherKind) {
    const std::string file = (folder / "masked.template").string();
    ASSERT_EQ(runVeldan({"template", bundled("first-mask.webp"), "--mask", "-o", file}).exitCode, 0);
    std::ostringstream hexadecimal;
    for (const unsigned char byte : readBytes(file))
        hexadecimal << std::hex << std::setw(2) << std::setfill('0') << int{byte};
    GalleryFile(gallery).run("UPDATE photo SET masked = x'" + hexadecimal.str() + "' WHERE id = 2");
    const Json masked = identified(gallery, bundled("first-mask.webp"));
    EXPECT_EQ(masked.at("name"), zoe);
    EXPECT_NEAR(masked.at("similarity").get<double>(), 1, 1e-5);
    EXPECT_EQ(identified(gallery, bundled("first-bare.webp")).at("name"), "First");
    EXPECT_EQ(identified(gallery, bundled("second-bare.webp")).at("name"), zoe);
}

TEST_F(TwoPersons, HaveTheirNamesInPictureAndText) {
    const fs::path out = folder / "named.png";
    const CommandResult result =
        withGallery({"identify"}, gallery, {bundled("first-bare.webp"), "--draw", out.string()});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, AllOf(HasSubstr("1  First  similarity 1.000"), HasSubstr("drawn in " + out.string())));
    EXPECT_GE(std::max(cv::imread(out.string()).rows, cv::imread(out.string()).cols), 1000);
}

TEST_F(TwoPersons, GetFurtherPhotosAndKeepTheOldOnes) {
    const CommandResult again = enroll(gallery, {"First", bundled("first-bare.webp")});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_THAT(again.output, HasSubstr("nothing changed"));
    const CommandResult more = enroll(gallery, {"First", bundled("astronaut.jpg")});
    EXPECT_THAT(more.output, HasSubstr("First: " + bundled("astronaut.jpg") + " enrolled (quality "));
    const CommandResult other = enroll(gallery, {"Other", bundled("first-bare.webp")});
    EXPECT_THAT(other.errors, HasSubstr("is enrolled as First"));
    EXPECT_THAT(content(gallery), UnorderedElementsAre("First: first-bare.webp", "First: astronaut.jpg",
                                                       "Other: first-bare.webp", zoe + ": second-bare.webp"));
    const Json listed = Json::parse(withGallery({"gallery", "list", "--json"}, gallery, {}).output).at("persons");
    ASSERT_EQ(listed.size(), 3u);
    EXPECT_EQ(listed[0].at("name"), "First");
    EXPECT_EQ(listed[0].at("photos"), 2);
}

TEST_F(TwoPersons, CanBeRemoved) {
    const CommandResult none = withGallery({"gallery", "remove"}, gallery, {"Nobody"});
    EXPECT_EQ(none.exitCode, 3);
    EXPECT_THAT(none.errors, HasSubstr("there is no \"Nobody\""));
    enroll(gallery, {"First", bundled("astronaut.jpg")});
    // Two photos whose digests begin alike.
    GalleryFile(gallery).run("UPDATE photo SET digest = '12345678' || id || substr(digest, 10)");
    for (const char* photo : {"", "123", "1234", "123456789", "no.jpg"}) {
        const CommandResult refused = withGallery({"gallery", "remove"}, gallery, {"First", "--photo", photo});
        EXPECT_EQ(refused.exitCode, std::strlen(photo) < 6 ? 2 : 3) << photo;
        EXPECT_EQ(refused.errors.find("first-bare.webp") != std::string::npos, std::string(photo) == "1234");
    }
    EXPECT_EQ(content(gallery).size(), 3u);
    EXPECT_EQ(withGallery({"gallery", "remove"}, gallery, {zoe, "--photo", "second-bare.webp"}).exitCode, 0);
    enroll(gallery, {zoe, bundled("second-bare.webp")});
    EXPECT_EQ(withGallery({"gallery", "remove"}, gallery, {"First", "--photo", "123456781"}).exitCode, 0);
    EXPECT_THAT(content(gallery), ElementsAre("First: astronaut.jpg", zoe + ": second-bare.webp"));
    const auto mentions = [&](const std::string& text) {
        const std::vector<unsigned char> bytes = readBytes(gallery);
        return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
    };
    EXPECT_TRUE(mentions("astronaut.jpg"));
    EXPECT_EQ(withGallery({"gallery", "remove"}, gallery, {"First"}).exitCode, 0);
    EXPECT_THAT(content(gallery), ElementsAre(zoe + ": second-bare.webp"));
    EXPECT_FALSE(mentions("astronaut.jpg")); // and with it what was learnt from the photo
}

TEST_F(TwoPersons, TravelInAnExportedFile) {
    const std::string file = (folder / "exported.json").string();
    const fs::path other = folder / "other.db";
    ASSERT_EQ(withGallery({"gallery", "export"}, gallery, {file}).exitCode, 0);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0600));
    const fs::path link = folder / "link.json";
    fs::create_symlink(file, link);
    fs::permissions(file, fs::perms(0640));
    ASSERT_EQ(withGallery({"gallery", "export"}, gallery, {link.string()}).exitCode, 0);
    EXPECT_EQ(fs::read_symlink(link), file);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
    EXPECT_EQ(withGallery({"gallery", "export"}, gallery, {gallery.string()}).exitCode, 7);
    const auto exported = [](const fs::path& path) { return withGallery({"gallery", "export"}, path, {"-"}).output; };
    EXPECT_EQ(withGallery({"gallery", "import"}, other, {file}).exitCode, 0);
    EXPECT_TRUE(exported(other) == exported(gallery)); // without pages of base64 when it fails
    EXPECT_EQ(withGallery({"gallery", "remove"}, other, {"First"}).exitCode, 0);
    const CommandResult merged = withGallery({"gallery", "import"}, other, {file});
    EXPECT_EQ(merged.exitCode, 0) << merged.errors;
    EXPECT_THAT(merged.output, HasSubstr("1 photo imported, 1 enrolled before, 0 refused"));
    EXPECT_THAT(content(other), UnorderedElementsAre("First: first-bare.webp", zoe + ": second-bare.webp"));
    EXPECT_NEAR(identified(other, bundled("second-bare.webp")).at("similarity").get<double>(), 1, 1e-5);
}

// A template is 520 bytes, 696 characters of base64.
TEST_F(TwoPersons, AreImportedWithoutWhatIsDamaged) {
    const Json whole = Json::parse(withGallery({"gallery", "export"}, gallery, {"-"}).output);
    struct Damage {
        const char* message;
        std::function<void(Json& person)> apply;
    };
    const auto onPhoto = [](const char* key, const Json& value) {
        return [key, value](Json& person) { person["photos"][0][key] = value; };
    };
    const Damage damages[] = {
        {"damaged", [](Json& person) { person["photos"][0]["bare"].get_ref<std::string&>()[300] ^= 1; }},
        {"other kind", [](Json& person) { person["photos"][0]["masked"] = person["photos"][0]["bare"]; }},
        {"wrong length", onPhoto("masked", "AAAA")},
        {"wrong length", onPhoto("bare", std::string(696, '='))},
        {"digest", onPhoto("digest", "../../etc")},
        {"date", onPhoto("date", "yesterday")},
        {"quality", onPhoto("quality", 101)},
        {"missing or of a wrong type", onPhoto("photo", 7)},
        {"missing or of a wrong type", [](Json& person) { person["photos"][0] = Json::array(); }},
        {"a slash", [](Json& person) { person["name"] = "../First"; }},
        {"control characters", [](Json& person) { person["name"] = "First\x1b[2J"; }},
        {"needs a name", [](Json& person) { person.erase("name"); }},
        {"no list of photos", [](Json& person) { person["photos"] = "none"; }},
    };
    for (const Damage& damage : damages) {
        Json document = whole;
        damage.apply(document["persons"][0]);
        const std::string text = document.dump();
        const fs::path file = folder / "damaged.json";
        writeBytes(file, {text.begin(), text.end()});
        const fs::path other = folder / "other.db";
        fs::remove(other);
        const CommandResult result = withGallery({"gallery", "import"}, other, {file.string()});
        EXPECT_EQ(result.exitCode, 9);
        EXPECT_THAT(result.errors, HasSubstr(damage.message));
        EXPECT_THAT(result.errors, Not(HasSubstr("\x1b")));
        EXPECT_THAT(content(other), ElementsAre(zoe + ": second-bare.webp")) << damage.message;
    }

    for (const auto& [key, value] : {std::pair<const char*, Json>{"recognizers", {{"bare", ""}, {"masked", ""}}},
                                     {"format", "something else"},
                                     {"version", 2},
                                     {"persons", 1}}) {
        Json document = whole;
        document[key] = value;
        const std::string text = document.dump();
        writeBytes(folder / "foreign.json", {text.begin(), text.end()});
        EXPECT_EQ(withGallery({"gallery", "import"}, folder / "none.db", {(folder / "foreign.json").string()}).exitCode,
                  std::string(key) == "recognizers" ? 10 : 4);
        EXPECT_FALSE(fs::exists(folder / "none.db")) << key;
    }
}

TEST_F(TwoPersons, WithADamagedTemplateArePassedOver) {
    GalleryFile(gallery).run("UPDATE photo SET bare = CAST(substr(bare, 1, 519) || x'00' AS BLOB) WHERE id = 1");
    const CommandResult result = withGallery({"identify", "--json"}, gallery, {bundled("first-bare.webp")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("passed over: First"), HasSubstr("damaged")));
    EXPECT_NE(Json::parse(result.output).at("photos")[0].at("faces")[0].at("name"), "First");
    EXPECT_EQ(shownPersons(gallery)[0].at("photos")[0].at("damaged"), true);
    EXPECT_EQ(shownPersons(gallery)[1].at("photos")[0].at("damaged"), false);
    const CommandResult exported = withGallery({"gallery", "export"}, gallery, {"-"});
    EXPECT_EQ(exported.exitCode, 10);
    ASSERT_EQ(Json::parse(exported.output).at("persons").size(), 1u);
    EXPECT_EQ(enrollJson(gallery, {"First", bundled("first-bare.webp")}).at("photos")[0].at("result"), "repaired");
    EXPECT_EQ(identified(gallery, bundled("first-bare.webp")).at("name"), "First");
}

// Its checksum holds, but no face gives such a template, and its similarities are not bounded.
TEST_F(TwoPersons, WithAnImplausibleTemplateArePassedOver) {
    GalleryFile(gallery).run(
        "UPDATE photo SET bare = CAST(x'56445f56352e3031' || zeroblob(508) || x'01000000' AS BLOB) "
        "WHERE id = 1");
    EXPECT_THAT(withGallery({"identify"}, gallery, {bundled("first-bare.webp")}).errors,
                HasSubstr("passed over: First"));
}

TEST_F(TwoPersons, AreToldWithTheirPhotosNearestFirst) {
    const std::string probe = (folder / "probe.tpl").string();
    ASSERT_EQ(runVeldan({"template", bundled("second-bare.webp"), "-o", probe}).exitCode, 0);
    for (const std::string& photo : {bundled("second-bare.webp"), probe}) {
        const Json face = identified(gallery, photo, {"--top", "5"});
        const Json& candidates = face.at("candidates");
        ASSERT_EQ(candidates.size(), 2u);
        EXPECT_EQ(candidates[0].at("name"), zoe);
        EXPECT_EQ(candidates[0].at("similarity"), face.at("similarity"));
        EXPECT_EQ(candidates[0].at("photo"), bundled("second-bare.webp"));
        EXPECT_EQ(candidates[1].at("name"), "First");
        EXPECT_NEAR(candidates[1].at("similarity").get<double>(),
                    Json::parse(runVeldan({"match", "--json", bundled("first-bare.webp"), photo}).output)
                        .at("similarity")
                        .get<double>(),
                    1e-6);
    }
    EXPECT_THAT(withGallery({"identify"}, gallery, {probe, "--top", "1"}).output,
                HasSubstr("1. " + zoe + "  similarity 1.000  to " + bundled("second-bare.webp")));
}

TEST_F(TwoPersons, ChangeTheirNamesAndBecomeOne) {
    const auto change = [&](const char* what, const std::string& a, const std::string& b) {
        return withGallery({"gallery", what}, gallery, {a, b}).exitCode;
    };
    EXPECT_EQ(change("rename", "First", zoe), 2);
    EXPECT_EQ(change("rename", "First", "a/b"), 2);
    EXPECT_EQ(change("rename", "Nobody", "Third"), 3);
    EXPECT_EQ(change("rename", "First", "Third"), 0);
    EXPECT_EQ(change("merge", "Third", "Nobody"), 3);
    EXPECT_EQ(change("merge", "Third", "Third"), 2);
    EXPECT_THAT(content(gallery), UnorderedElementsAre("Third: first-bare.webp", zoe + ": second-bare.webp"));
    enroll(gallery, {"Third", bundled("second-bare.webp")});
    EXPECT_EQ(change("merge", "Third", zoe), 0);
    EXPECT_THAT(content(gallery), UnorderedElementsAre(zoe + ": first-bare.webp", zoe + ": second-bare.webp"));
}

TEST_F(TwoPersons, ReachTheTerminalWithoutControlCharacters) {
    GalleryFile(gallery).run("UPDATE person SET name = 'a' || char(27) || '[2J' || char(155) WHERE id = 1");
    for (const CommandResult& result :
         {withGallery({"identify"}, gallery, {bundled("first-bare.webp"), "--top", "2"}),
          withGallery({"gallery", "list"}, gallery, {}), withGallery({"gallery", "merge"}, gallery, {"\x1b", zoe})})
        EXPECT_EQ((result.output + result.errors).find_first_of("\x1b\x9b"), std::string::npos);
    EXPECT_EQ(shownPersons(gallery)[1].at("name"), "a\x1b[2J\xc2\x9b");
}

// A limit on the size of files stands in for a full disk.
TEST_F(TwoPersons, AreAllWhenTheDiskIsFull) {
    const std::string blocks = std::to_string(fs::file_size(gallery) / 512);
    const CommandResult result =
        runProgram("/bin/sh", {"-c", "ulimit -f " + blocks + "; exec \"$0\" \"$@\"", VELDAN_COMMAND, "enroll",
                               "--gallery", gallery, "Third", bundled("first-mask.webp"), bundled("astronaut.jpg"),
                               bundled("first-bare.webp"), bundled("second-bare.webp")});
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.errors, HasSubstr("would become larger"));
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 2); // the mask, then the end
    EXPECT_THAT(result.output, HasSubstr("1 refused; "));
}

TEST(Enroll, RefusesWhatCannotServe) {
    const ScratchFolder folder;
    const fs::path gallery = folder / "gallery.db";
    const cv::Mat portrait = cv::imread(bundled("first-bare.webp"));
    cv::Mat small;
    cv::Mat pair;
    cv::resize(cv::imread(bundled("astronaut.jpg")), small, {200, 200});
    cv::copyMakeBorder(small, small, 0, portrait.rows - small.rows, 0, 0, cv::BORDER_REPLICATE);
    cv::hconcat(portrait, small, pair);
    const std::string two = (folder / "two.png").string();
    const std::string none = (folder / "grey.png").string();
    const std::string text = (folder / "text.jpg").string();
    cv::imwrite(two, pair);
    cv::imwrite(none, cv::Mat(200, 200, CV_8UC3, cv::Scalar(128, 128, 128)));
    writeBytes(text, {'n', 'o'});

    const CommandResult result =
        enroll(gallery, {"First", none, two, bundled("first-mask.webp"), (folder / "missing.jpg").string(), text});
    EXPECT_EQ(result.exitCode, 9);
    for (const std::string& line : {none + ": not enrolled: no face", two + ": not enrolled: 2 faces",
                                    bundled("first-mask.webp") + ": not enrolled: the face wears a mask",
                                    std::string("missing.jpg: no such file"), text + ": not a picture"})
        EXPECT_THAT(result.errors, HasSubstr(line));
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 5);
    EXPECT_THAT(result.output, HasSubstr("0 enrolled, 0 enrolled before, 5 refused"));
    for (const fs::directory_entry& entry : fs::directory_iterator(gallery.parent_path()))
        EXPECT_EQ(entry.path().string().find("gallery"), std::string::npos) << entry;
    const Json quality = enrollJson(gallery, {"First", bundled("first-bare.webp"), "--min-quality", "100"});
    EXPECT_EQ(quality.at("photos")[0].at("error").at("name"), "unsuitable");
    EXPECT_THAT(quality.at("photos")[0].at("error").at("message"), HasSubstr("quality"));
    EXPECT_EQ(quality.at("summary").at("photos"), 0);

    ASSERT_EQ(enroll(gallery, {"First", two, "--largest"}).exitCode, 0);
    EXPECT_GT(identified(gallery, bundled("first-bare.webp")).at("similarity").get<double>(), 0.95);
}

TEST(Enroll, TakesAFolderForEachPerson) {
    const ScratchFolder folder;
    const fs::path gallery = folder / "gallery.db";
    for (const char* name : {"all/First/.thumbnails", "all/Second", "all/Nobody", "all/ space"})
        fs::create_directories(folder / name);
    fs::copy_file(bundled("first-bare.webp"), folder / "all/First/1.webp");
    fs::copy_file(bundled("second-bare.webp"), folder / "all/Second/1.webp");
    fs::copy_file(bundled("astronaut.jpg"), folder / "all/Second/2.jpg");
    fs::copy_file(bundled("astronaut.jpg"), folder / "all/loose.jpg");
    fs::copy_file(bundled("astronaut.jpg"), folder / "all/ space/1.jpg");
    const Json result = enrollJson(gallery, {(folder / "all").string() + "/"});
    EXPECT_EQ(
        result.at("summary"),
        Json({{"enrolled", 3}, {"repaired", 0}, {"unchanged", 0}, {"refused", 3}, {"persons", 2}, {"photos", 3}}));
    std::vector<std::string> refused;
    for (const Json& entry : result.at("refusedFolders"))
        refused.push_back(fs::path(entry.at("path").get<std::string>()).filename());
    EXPECT_THAT(refused, UnorderedElementsAre("loose.jpg", "Nobody", " space"));
    const std::vector<std::string> everybody = {"First: 1.webp", "Second: 1.webp", "Second: 2.jpg"};
    EXPECT_EQ(content(gallery), everybody);
    // The folder of a person, with and without naming it.
    const CommandResult flat = enroll(gallery, {(folder / "all/Second").string()});
    EXPECT_THAT(flat.output, HasSubstr("2 enrolled before"));
    EXPECT_THAT(flat.errors, HasSubstr("one person, \"Second\""));
    EXPECT_EQ(enrollJson(gallery, {"Third", (folder / "all/Second").string()}).at("summary").at("persons"), 3);
}

// A pipe gives its bytes once. What the digest is of is what was looked at, whatever becomes of the file meanwhile.
TEST(Enroll, ReadsAPhotoOnce) {
    const ScratchFolder folder;
    const fs::path pipe = folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { writeBytes(pipe, readBytes(bundled("first-bare.webp"))); });
    const CommandResult result = runProgram(
        "/usr/bin/timeout", {"60", VELDAN_COMMAND, "enroll", "--gallery", folder / "gallery.db", "First", pipe});
    writer.join();
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(identified(folder / "gallery.db", bundled("first-bare.webp")).at("name"), "First");
}

TEST(Enroll, TakesTemplatesInPairs) {
    const ScratchFolder folder;
    const std::string bare = (folder / "bare").string();
    const std::string masked = (folder / "aMasked.jpg").string();
    ASSERT_EQ(runVeldan({"template", bundled("first-bare.webp"), "-o", bare}).exitCode, 0);
    ASSERT_EQ(runVeldan({"template", bundled("first-bare.webp"), "--mask", "-o", masked}).exitCode, 0);
    const fs::path gallery = folder / "gallery.db";
    const CommandResult alone = enroll(gallery, {"First", bare});
    EXPECT_EQ(alone.exitCode, 9);
    EXPECT_THAT(alone.errors, HasSubstr("one for a mask has to go with it"));
    EXPECT_EQ(enroll(gallery, {"First", masked, bare}).exitCode, 0);
    EXPECT_NEAR(identified(gallery, bundled("first-bare.webp")).at("similarity").get<double>(), 1, 1e-5);
    EXPECT_NEAR(identified(gallery, masked).at("similarity").get<double>(), 1, 1e-5);
    EXPECT_EQ(enrollJson(gallery, {"First", bare, masked}).at("photos")[0].at("result"), "unchanged");
}

TEST(Enroll, RefusesNamesAndFoldersThatAreNone) {
    const ScratchFolder folder;
    for (const char* name : {"", " ", "a/b", "line\nbreak", "\xff", "\xed\xa0\x80"})
        EXPECT_EQ(enroll(folder / "gallery.db", {name, bundled("astronaut.jpg")}).exitCode, 2) << name;
    EXPECT_EQ(enroll(folder / "gallery.db", {(folder / "missing").string()}).exitCode, 2);
    EXPECT_FALSE(fs::exists(folder / "gallery.db"));
    const CommandResult unwritable = enroll(folder / "missing/gallery.db", {"First", bundled("first-bare.webp")});
    EXPECT_EQ(unwritable.exitCode, 7);
    EXPECT_THAT(unwritable.errors, HasSubstr("cannot be created"));
}

struct Foreign {
    const char* name;
    const char* message;
    bool shown; ///< whether its persons can be listed all the same
    std::function<void(const fs::path&)> make;
};

void PrintTo(const Foreign& foreign, std::ostream* out) {
    *out << foreign.name;
}

class ForeignGallery : public testing::TestWithParam<Foreign> {};

TEST_P(ForeignGallery, IsRefusedAndLeftAsItIs) {
    const ScratchFolder folder;
    const fs::path gallery = folder / "gallery.db";
    ASSERT_EQ(enroll(gallery, {"First", bundled("first-bare.webp")}).exitCode, 0);
    GetParam().make(gallery);
    const std::vector<unsigned char> before = readBytes(gallery);
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"enroll", "Second"}, {"identify"}, {"gallery", "list"}, {"gallery", "remove"}}) {
        const bool about = command.front() != "gallery";
        if (command.back() == "remove" && GetParam().shown)
            continue;
        std::vector<std::string> arguments;
        if (about)
            arguments = {bundled("second-bare.webp")};
        else if (command.back() == "remove")
            arguments = {"First"};
        const CommandResult result = withGallery(command, gallery, arguments);
        EXPECT_EQ(result.exitCode, GetParam().shown && !about ? 0 : 10) << command.back();
        EXPECT_THAT(result.errors, HasSubstr(GetParam().message)) << command.back();
        EXPECT_EQ(readBytes(gallery), before) << command.back();
    }
}

void overwrite(const fs::path& path, std::size_t from, std::size_t to) {
    std::vector<unsigned char> bytes = readBytes(path);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(from),
              bytes.begin() + static_cast<std::ptrdiff_t>(std::min(to, bytes.size())),
              static_cast<unsigned char>(0x5a));
    writeBytes(path, bytes);
}

INSTANTIATE_TEST_SUITE_P(
    All, ForeignGallery,
    testing::Values(Foreign{"text", "not a gallery", false,
                            [](const fs::path& path) {
                                writeBytes(path, {'t', 'e', 'x', 't'});
                            }},
                    Foreign{"otherDatabase", "not a gallery", false,
                            [](const fs::path& path) { GalleryFile(path).run("PRAGMA application_id = 7"); }},
                    Foreign{"otherDatabaseWithItsLog", "not a gallery", false,
                            [](const fs::path& path) {
                                GalleryFile(path).run("PRAGMA application_id = 7; PRAGMA journal_mode = WAL");
                            }},
                    Foreign{"newerFormat", "newer version", false,
                            [](const fs::path& path) { GalleryFile(path).run("PRAGMA user_version = 2"); }},
                    Foreign{"otherNetworks", "Enrol again", true,
                            [](const fs::path& path) { GalleryFile(path).run("UPDATE recognizer SET digest = 'a'"); }},
                    Foreign{"missingTable", "damaged", false,
                            [](const fs::path& path) { GalleryFile(path).run("DROP TABLE photo"); }},
                    Foreign{"damagedPages", "damaged", false,
                            [](const fs::path& path) { overwrite(path, 4096, std::size_t{1} << 20); }},
                    Foreign{"cutOff", "damaged", false, [](const fs::path& path) { fs::resize_file(path, 4096); }}),
    testing::PrintToStringParamName());

TEST(Gallery, ThatIsMissingEmptyOrNoFileIsNotMade) {
    const ScratchFolder folder;
    EXPECT_EQ(withGallery({"gallery", "list"}, folder / "missing.db", {}).exitCode, 3);
    EXPECT_EQ(withGallery({"gallery", "remove"}, folder / "missing.db", {"First"}).exitCode, 3);
    EXPECT_EQ(withGallery({"identify"}, folder / "missing.db", {bundled("astronaut.jpg")}).exitCode, 3);
    EXPECT_FALSE(fs::exists(folder / "missing.db"));
    writeBytes(folder / "empty.db", {});
    EXPECT_EQ(withGallery({"gallery", "list"}, folder / "empty.db", {}).exitCode, 10);
    EXPECT_EQ(withGallery({"gallery", "list"}, fs::path(VELDAN_PHOTOS), {}).exitCode, 10);
    EXPECT_EQ(enroll("/dev/null", {"First", bundled("astronaut.jpg")}).exitCode, 10);
}

TEST(Gallery, IsSharedByProcesses) {
    const ScratchFolder folder;
    const fs::path gallery = folder / "gallery.db";
    RunningCommand first(VELDAN_COMMAND, {"enroll", "--gallery", gallery, "First", bundled("first-bare.webp")});
    RunningCommand second(VELDAN_COMMAND, {"enroll", "--gallery", gallery, "Second", bundled("second-bare.webp")});
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(second.wait(), 0);
    EXPECT_THAT(content(gallery), ElementsAre("First: first-bare.webp", "Second: second-bare.webp"));

    GalleryFile other(gallery);
    other.run("BEGIN IMMEDIATE");
    const CommandResult refused = withGallery({"gallery", "remove"}, gallery, {"First"});
    EXPECT_EQ(refused.exitCode, 10);
    EXPECT_THAT(refused.errors, HasSubstr("another program is using it"));
    const CommandResult stopped = enroll(
        gallery, {"Third", bundled("first-mask.webp"), bundled("astronaut.jpg"), bundled("first-bare.webp"), "--json"});
    EXPECT_EQ(stopped.exitCode, 10);
    EXPECT_EQ(Json::parse(stopped.output).at("photos").size(), 2u);
    EXPECT_EQ(Json::parse(stopped.output).at("summary").at("left"), 2);
    EXPECT_EQ(content(gallery).size(), 2u);
}

// After a power failure too: the data, and then that the journal is gone, have reached the disk.
TEST(Gallery, ReachesTheDiskBeforeAnybodyIsAcknowledged) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer wants to be loaded first";
#endif
    const ScratchFolder folder;
    const fs::path log = folder / "log";
    ASSERT_EQ(enroll(folder / "gallery.db", {"Second", bundled("second-bare.webp")}).exitCode, 0);
    const CommandResult result =
        runProgram("/usr/bin/env",
                   {std::string("LD_PRELOAD=") + VELDAN_LOG_SYNCS, "VELDAN_SYNC_LOG=" + log.string(), VELDAN_COMMAND,
                    "enroll", "--gallery", folder / "gallery.db", "First", bundled("first-bare.webp")});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const std::vector<unsigned char> bytes = readBytes(log);
    const std::string events(bytes.begin(), bytes.end());
    const std::string place = fs::canonical(folder / "").string();
    const std::string removed = "unlink " + place + "/gallery.db-journal\n";
    ASSERT_THAT(events, HasSubstr(removed));
    EXPECT_THAT(events.substr(0, events.rfind(removed)), HasSubstr("sync " + place + "/gallery.db\n"));
    EXPECT_THAT(events.substr(events.rfind(removed)), HasSubstr("sync " + place + "\n"));
}

// Each round enrols the same photos as another person and is killed: after some acknowledged photos, or as soon as the
// journal says that a change is on its way into the file.
TEST(Gallery, KeepsEverybodyAcknowledgedWhenKilled) {
    const ScratchFolder folder;
    const fs::path gallery = folder / "gallery.db";
    const fs::path journal = folder / "gallery.db-journal";
    cv::Mat face = cv::imread(bundled("first-bare.webp"))(cv::Rect(60, 140, 220, 240)).clone();
    std::vector<std::string> photos;
    for (int i = 0; i < 6; ++i) {
        face.at<cv::Vec3b>(0, 0) = cv::Vec3b(static_cast<unsigned char>(i), 0, 0);
        photos.push_back((folder / ("photo" + std::to_string(i) + ".png")).string());
        cv::imwrite(photos.back(), face);
    }
    std::mt19937 random(20240531);
    std::set<std::string> acknowledged;
    int duringChange = 0;
    for (int round = 0; round < 20; ++round) {
        const std::string person = "person " + std::to_string(round);
        std::vector<std::string> arguments = {"enroll", "--gallery", gallery, person};
        arguments.insert(arguments.end(), photos.begin(), photos.end());
        RunningCommand command(VELDAN_COMMAND, arguments);
        const auto lines = static_cast<int>(random() % 5);
        const bool awaitChange = random() % 2 == 0;
        const auto note = [&](const std::string& line) {
            if (const std::size_t end = line.find(" enrolled ("); end != std::string::npos)
                acknowledged.insert(line.substr(0, end));
        };
        for (int i = 0; i < lines; ++i) {
            const auto line = command.readLine();
            ASSERT_TRUE(line);
            note(*line);
        }
        if (awaitChange) {
            while (!fs::exists(journal) && !command.ended()) {
            }
        }
        duringChange += fs::exists(journal) ? 1 : 0;
        command.kill();
        command.wait();
        while (const auto line = command.readLine())
            note(*line);

        if (acknowledged.empty() && (!fs::exists(gallery) || fs::file_size(gallery) == 0 || fs::exists(journal)))
            continue;
        // Opened here as any program would; the command opens it in the next round.
        std::istringstream kept(GalleryFile(gallery).run("SELECT group_concat(name || ': ' || source, char(10)) "
                                                         "FROM photo JOIN person ON photo.person = person.id"));
        std::set<std::string> rows;
        for (std::string row; std::getline(kept, row);)
            rows.insert(row);
        ASSERT_TRUE(std::includes(rows.begin(), rows.end(), acknowledged.begin(), acknowledged.end())) << round;
        ASSERT_EQ(GalleryFile(gallery).run("PRAGMA integrity_check"), "ok");
    }
    EXPECT_GT(acknowledged.size(), 20u);
    EXPECT_GT(duringChange, 2); // otherwise the kills did not meet what they are for
    EXPECT_GE(content(gallery).size(), acknowledged.size());
    EXPECT_EQ(enroll(gallery, {"person 0", photos.back()}).exitCode, 0);
}

} // namespace
