#include "tokens.hpp"

#include "gallery/digest.hpp"
#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>

namespace veldan::service {

namespace {

using kit::CommandError;
using kit::ExitCode;

constexpr std::size_t tokenBytes = 32;
constexpr std::size_t digestDigits = 64;
constexpr std::size_t mostAddresses = 4096;
constexpr int freeFailures = 3;
constexpr std::chrono::seconds forgottenAfter{60};

std::string digestOf(const std::string& token) {
    return kit::sha256({token.begin(), token.end()});
}

bool isName(const std::string& name) {
    return !name.empty() && name.size() <= 64 && name.front() != '#' &&
           std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~' && c != '"' && c != '\\'; });
}

bool isDate(const std::string& text) {
    std::tm parts{};
    const char* const end = ::strptime(text.c_str(), "%Y-%m-%d", &parts);
    return text.size() == 10 && end != nullptr && *end == '\0';
}

bool isDigest(const std::string& text) {
    return text.size() == digestDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d", &parts);
    return text.data();
}

} // namespace

Tokens::Tokens(std::string file) : file_(std::move(file)) {
    if (wanted())
        rows_ = read();
}

void Tokens::reload() {
    if (!wanted())
        return;
    std::vector<Row> rows = read();
    const std::lock_guard<std::mutex> lock(mutex_);
    rows_ = std::move(rows);
}

std::vector<Tokens::Row> Tokens::read() const {
    struct stat status {};
    if (::stat(file_.c_str(), &status) == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw CommandError(ExitCode::Usage, file_ + ": others may write it; chmod 600 keeps them out");
    std::vector<unsigned char> bytes;
    try {
        bytes = kit::readFile(file_);
    } catch (const CommandError& error) {
        throw CommandError(error.code(), file_ + ": " + error.what());
    }
    std::istringstream text(std::string(bytes.begin(), bytes.end()));
    std::vector<Row> rows;
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        std::istringstream words(line);
        Row row;
        std::string role;
        std::string rest;
        if (!(words >> row.caller.name) || row.caller.name.front() == '#')
            continue;
        words >> role >> row.digest;
        if (words >> row.expiry && !isDate(row.expiry))
            row.digest.clear();
        const std::optional<Role> known = roleOf(role);
        if (!known || !isDigest(row.digest) || words >> rest)
            throw CommandError(ExitCode::Usage, file_ + ":" + std::to_string(number) +
                                                    ": not \"name role digest\" or \"name role digest expiry\"");
        row.caller.role = *known;
        rows.push_back(std::move(row));
    }
    return rows;
}

Tokens::Verdict Tokens::check(const std::string& token, Caller& caller) {
    const std::string digest = digestOf(token);
    const std::string date = today();
    const std::lock_guard<std::mutex> lock(mutex_);
    const Row* found = nullptr;
    for (const Row& row : rows_)
        if (CRYPTO_memcmp(row.digest.data(), digest.data(), digestDigits) == 0)
            found = &row;
    if (found == nullptr)
        return Verdict::Unknown;
    caller = found->caller;
    return !found->expiry.empty() && found->expiry < date ? Verdict::Expired : Verdict::Known;
}

std::chrono::milliseconds Tokens::countFailure(const std::string& address) {
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard<std::mutex> lock(mutex_);
    if (failures_.size() >= mostAddresses)
        failures_.clear();
    Failures& failures = failures_[address];
    if (now - failures.last > forgottenAfter)
        failures.count = 0;
    failures.last = now;
    ++failures.count;
    const int doublings = std::min(failures.count - freeFailures, 5);
    return std::chrono::milliseconds(doublings > 0 ? 50 << doublings : 0);
}

std::string newToken(const std::string& file, const std::string& name, Role role, const std::string& expiry) {
    if (!isName(name))
        throw CommandError(ExitCode::Usage, "\"" + name +
                                                "\": a token's name has 1 to 64 letters, digits and signs, "
                                                "without blanks, quotes and backslashes");
    if (!expiry.empty() && !isDate(expiry))
        throw CommandError(ExitCode::Usage, "\"" + expiry + "\": not a date such as 2030-12-31");
    const auto notWritten = [&](int error) {
        return CommandError(ExitCode::NotWritten, file + ": cannot be written: " + kit::reasonOf(error));
    };
    const kit::FileDescriptor fd(::open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, kit::forOwner));
    if (fd.get() < 0 || ::flock(fd.get(), LOCK_EX) != 0)
        throw notWritten(errno);
    std::vector<unsigned char> known;
    try {
        known = kit::readFile(file);
    } catch (const CommandError& error) {
        throw CommandError(error.code(), file + ": " + error.what());
    }
    std::istringstream lines(std::string(known.begin(), known.end()));
    const std::string sameName = name + " ";
    std::string other;
    while (std::getline(lines, other))
        if (other.compare(0, sameName.size(), sameName) == 0)
            throw CommandError(ExitCode::Usage, fmt::format("{}: there is a token of \"{}\" already", file, name));

    std::array<unsigned char, tokenBytes> random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1)
        throw CommandError(ExitCode::Internal, "the system gives no random numbers");
    static constexpr const char* digits = "0123456789abcdef";
    std::string token = "veldan_";
    for (const unsigned char byte : random) {
        token += digits[byte >> 4U];
        token += digits[byte & 15U];
    }
    std::string line = known.empty() || known.back() == '\n' ? "" : "\n";
    line += fmt::format("{} {} {}{}{}\n", name, nameOf(role), digestOf(token), expiry.empty() ? "" : " ", expiry);
    if (!kit::writeAll(fd.get(), reinterpret_cast<const unsigned char*>(line.data()), line.size()) ||
        ::fsync(fd.get()) != 0)
        throw notWritten(errno);
    return token;
}

} // namespace veldan::service
