#ifndef VELDAN_SERVICE_TOKENS_HPP
#define VELDAN_SERVICE_TOKENS_HPP

#include "routes.hpp"

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace veldan::service {

/** Who a token belongs to. */
struct Caller {
    std::string name;
    Role role = Role::Nobody;
};

/**
 * The tokens of a file, whose lines are "name role digest" or "name role digest expiry": the digest is the token's
 * SHA-256, the expiry a date such as 2030-12-31, on which the token still holds. Lines that begin with # say nothing.
 * Any thread may ask.
 */
class Tokens {
public:
    /** @param file  empty: nobody needs a token. Throws CommandError. */
    explicit Tokens(std::string file);

    bool wanted() const { return !file_.empty(); }

    /** Reads the file again; when that fails, the tokens stay as they were. Throws CommandError. */
    void reload();

    enum class Verdict { Known, Unknown, Expired };

    /** Compares with all tokens, which takes the same time whichever it is. */
    Verdict check(const std::string& token, Caller& caller);

    /**
     * Counts a failure of an address.
     * @return how long the answer is to be held back: nothing at first, then more with every failure
     */
    std::chrono::milliseconds countFailure(const std::string& address);

private:
    struct Row {
        Caller caller;
        std::string digest;
        std::string expiry;
    };
    struct Failures {
        int count = 0;
        std::chrono::steady_clock::time_point last;
    };

    std::vector<Row> read() const;

    const std::string file_;
    std::mutex mutex_;
    std::vector<Row> rows_;
    std::unordered_map<std::string, Failures> failures_;
};

/**
 * Makes a token and adds it to a file, which is created for its owner alone when there is none.
 * @return the token, which is nowhere else. Throws CommandError: Usage when the name is taken or cannot be one, or the
 * expiry is no date; NotWritten
 */
std::string newToken(const std::string& file, const std::string& name, Role role, const std::string& expiry);

} // namespace veldan::service

#endif
