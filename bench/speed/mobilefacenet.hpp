#ifndef VELDAN_BENCH_MOBILEFACENET_HPP
#define VELDAN_BENCH_MOBILEFACENET_HPP

#include <opencv2/dnn.hpp>

#include <string>

// The usual recognizer of about a million weights, for comparison: a MobileFaceNet of the published shape (112 x 112
// in, 128 out, PReLU, batch normalisation folded in), with random weights, which run as fast as trained ones.
class MobileFaceNet {
public:
    MobileFaceNet() {
        convolution(64, 3, 2, 1);
        convolution(64, 3, 1, 64);
        bottlenecks(5, 64, 2, 2);
        bottlenecks(1, 128, 4, 2);
        bottlenecks(6, 128, 2, 1);
        bottlenecks(1, 128, 4, 2);
        bottlenecks(2, 128, 2, 1);
        convolution(512, 1, 1, 1);
        convolution(512, 7, 1, 512, false, 0);
        convolution(128, 1, 1, 1, false);
    }

    cv::Mat forward(const cv::Mat& blob) {
        net.setInput(blob);
        return net.forward();
    }

private:
    int add(const std::string& type, cv::dnn::LayerParams& parameters) {
        return net.addLayerToPrev(type + std::to_string(count++), type, parameters);
    }

    void convolution(int outputs, int kernel, int stride, int groups, bool activate = true, int padding = -1) {
        cv::dnn::LayerParams p;
        p.set("num_output", outputs);
        p.set("kernel_size", kernel);
        p.set("stride", stride);
        p.set("pad", padding < 0 ? kernel / 2 : padding);
        p.set("group", groups);
        p.set("bias_term", true);
        const int shape[] = {outputs, channels / groups, kernel, kernel};
        cv::Mat weights(4, shape, CV_32F);
        random.fill(weights, cv::RNG::NORMAL, 0, 0.1);
        p.blobs = {weights, cv::Mat::zeros(1, outputs, CV_32F)};
        last = add("Convolution", p);
        channels = outputs;
        if (activate) {
            cv::dnn::LayerParams slopes;
            slopes.blobs = {cv::Mat(1, outputs, CV_32F, cv::Scalar(0.25))};
            last = add("PReLU", slopes);
        }
    }

    // Wide, depthwise, narrow; from the second one on with what came in added.
    void bottlenecks(int repeat, int outputs, int expansion, int stride) {
        for (int i = 0; i < repeat; ++i) {
            const bool residual = (i > 0 || stride == 1) && channels == outputs;
            const int wide = (i == 0 && stride == 2 ? channels : outputs) * expansion;
            const int before = last;
            convolution(wide, 1, 1, 1);
            convolution(wide, 3, i == 0 ? stride : 1, wide);
            convolution(outputs, 1, 1, 1, false);
            if (residual && before > 0) {
                cv::dnn::LayerParams sum;
                sum.set("operation", "sum");
                const int id = add("Eltwise", sum);
                net.connect(before, 0, id, 1);
                last = id;
            }
        }
    }

    cv::dnn::Net net;
    cv::RNG random{1};
    int channels = 3;
    int count = 0;
    int last = 0;
};

#endif
