#ifndef VELDAN_TESTS_SUPPORT_GRAPH_WRITER_HPP
#define VELDAN_TESTS_SUPPORT_GRAPH_WRITER_HPP

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Writes small TensorFlow GraphDef files, so that a test can give an engine networks whose answers it knows.
class GraphWriter {
public:
    GraphWriter() { node("input_image", "Placeholder", {}, {{"dtype", dataType(1)}}); }

    // Kernel in rows, columns, inputs, outputs order; VALID padding. The convolution's name is name/Conv2D.
    void convolution(const std::string& name, const std::string& input, std::vector<int> kernelShape,
                     const std::vector<float>& kernel, const std::vector<float>& bias, int stride) {
        constant(name + "/weights", 1, kernelShape, kernel.data(), kernel.size());
        node(name + "/Conv2D", "Conv2D", {input, name + "/weights"},
             {{"T", dataType(1)},
              {"data_format", field(2, "NHWC")},
              {"padding", field(2, "VALID")},
              {"strides", field(1, integer(3, 1) + integer(3, stride) + integer(3, stride) + integer(3, 1))}});
        addBias(name, name + "/Conv2D", bias);
    }

    void flatten(const std::string& name, const std::string& input, int values) {
        const std::int32_t shape[] = {-1, values};
        constant(name + "/shape", 3, {2}, shape, 2);
        node(name, "Reshape", {input, name + "/shape"}, {{"T", dataType(1)}});
    }

    // Weights in inputs, outputs order. The layer's name is name/MatMul.
    void dense(const std::string& name, const std::string& input, const std::vector<float>& weights,
               const std::vector<float>& bias) {
        const int outputs = static_cast<int>(bias.size());
        constant(name + "/weights", 1, {static_cast<int>(weights.size()) / outputs, outputs}, weights.data(),
                 weights.size());
        node(name + "/MatMul", "MatMul", {input, name + "/weights"}, {{"T", dataType(1)}});
        addBias(name, name + "/MatMul", bias);
    }

    void softmax(const std::string& name, const std::string& input) {
        node(name, "Softmax", {input}, {{"T", dataType(1)}});
    }

    void relu(const std::string& name, const std::string& input) { node(name, "Relu", {input}, {{"T", dataType(1)}}); }

    std::vector<unsigned char> bytes() const { return {graph.begin(), graph.end()}; }

private:
    struct Attribute {
        std::string key;
        std::string value;
    };

    static std::string varint(std::uint64_t value) {
        std::string out;
        for (; value > 127; value >>= 7)
            out += static_cast<char>(value | 128);
        return out + static_cast<char>(value);
    }
    static std::string integer(unsigned number, std::int64_t value) {
        return varint(number << 3) + varint(static_cast<std::uint64_t>(value));
    }
    static std::string field(unsigned number, const std::string& content) {
        return varint(number << 3 | 2) + varint(content.size()) + content;
    }
    static std::string dataType(int type) { return integer(6, type); }

    void node(const std::string& name, const std::string& op, const std::vector<std::string>& inputs,
              const std::vector<Attribute>& attributes) {
        std::string content = field(1, name) + field(2, op);
        for (const std::string& input : inputs)
            content += field(3, input);
        for (const Attribute& attribute : attributes)
            content += field(5, field(1, attribute.key) + field(2, attribute.value));
        graph += field(1, content);
    }

    template <class T>
    void constant(const std::string& name, int type, const std::vector<int>& shape, const T* values,
                  std::size_t count) {
        std::string dims;
        for (const int size : shape)
            dims += field(2, integer(1, size));
        std::string content(count * sizeof(T), '\0');
        std::memcpy(content.data(), values, content.size());
        node(name, "Const", {},
             {{"dtype", dataType(type)}, {"value", field(8, integer(1, type) + field(2, dims) + field(4, content))}});
    }

    void addBias(const std::string& name, const std::string& input, const std::vector<float>& bias) {
        constant(name + "/biases", 1, {static_cast<int>(bias.size())}, bias.data(), bias.size());
        node(name + "/BiasAdd", "BiasAdd", {input, name + "/biases"},
             {{"T", dataType(1)}, {"data_format", field(2, "NHWC")}});
    }

    std::string graph;
};

#endif
