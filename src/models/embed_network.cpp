// Writes the C++ unit that embeds one network file: chunks of base64 text, the two lengths and the two accessors.
// usage: veldan_embed_network NAME NETWORK_FILE OUTPUT.cpp

#include "models/network_store.hpp"

#include <veldan/model_store.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

namespace {

void writeUnit(std::ostream& out, const std::string& name, const std::string& text, std::size_t length) {
    const std::size_t chunkSize = veldan::networkChunkSize;
    const std::size_t chunks = std::max<std::size_t>(1, (text.size() + chunkSize - 1) / chunkSize);
    out << "// Made by veldan_embed_network.\n"
           "#include \"models/network_store.hpp\"\n\n"
           "#include <veldan/model_store.hpp>\n\n";
    // Declared before they are defined: a constant has internal linkage otherwise.
    for (std::size_t i = 0; i < chunks; ++i) {
        const std::string part = text.substr(std::min(text.size(), i * chunkSize), chunkSize);
        out << "extern const char " << name << i << "[];\nconst char " << name << i << "[] = \"" << part << "\";\n";
    }
    out << "extern const int " << name << "_len;\nconst int " << name << "_len = " << length << ";\n"
        << "extern const int " << name << "_b64_len;\nconst int " << name << "_b64_len = " << text.size() << ";\n\n"
        << "VELDAN_NETWORK_ACCESSORS(" << name << ");\n\n"
        << "int length_" << name << "() {\n    return " << name << "_len;\n}\n\n"
        << "int data_" << name << "(unsigned char* out) {\n    const char* const chunks[] = {";
    for (std::size_t i = 0; i < chunks; ++i)
        out << (i % 4 == 0 ? "\n        " : " ") << name << i << ",";
    out << "\n    };\n    return veldan::decodeStoredNetwork(chunks, " << chunks << ", " << name << "_b64_len, " << name
        << "_len, out);\n}\n";
}

int fail(const std::string& message) {
    std::cerr << "veldan_embed_network: " << message << '\n';
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return fail("usage: veldan_embed_network NAME NETWORK_FILE OUTPUT.cpp");
    const std::string name = argv[1];
    const std::string networkFile = argv[2];
    const std::string outputFile = argv[3];

    std::ifstream in(networkFile, std::ios::binary);
    if (!in)
        return fail("cannot read " + networkFile);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (in.bad())
        return fail("cannot read " + networkFile);
    if (bytes.empty())
        return fail(networkFile + " is empty");
    // Both stored lengths are 32-bit.
    if (bytes.size() > static_cast<std::size_t>(std::numeric_limits<int>::max()) / 4 * 3)
        return fail(networkFile + " is too large to embed");

    std::string text((bytes.size() + 2) / 3 * 4, '\0');
    const int written = B64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                                  text.data(), static_cast<int>(text.size()));
    if (static_cast<std::size_t>(written) != text.size())
        return fail("cannot encode " + networkFile);

    std::ofstream out(outputFile, std::ios::binary | std::ios::trunc);
    writeUnit(out, name, text, bytes.size());
    out.close();
    if (!out) {
        std::remove(outputFile.c_str());
        return fail("cannot write " + outputFile);
    }
    return EXIT_SUCCESS;
}
