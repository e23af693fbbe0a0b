#ifndef VELDAN_DETECT_STAGE_TIMES_HPP
#define VELDAN_DETECT_STAGE_TIMES_HPP

#include <ctime>

namespace veldan {

// Where a detector's time goes, in seconds of the calling thread's processor time (which leaves out what other programs
// take), added up over all calls. For benchmarks.
struct StageTimes {
    double pyramid = 0;
    double proposalNet = 0;
    double decoding = 0;
    double suppression = 0;
    double refinementCrops = 0;
    double refinementNet = 0;
    double outputCrops = 0;
    double outputNet = 0;
};

// Adds the time until its end to one of the stages; does nothing when nobody asked for times.
class StageTimer {
public:
    StageTimer(StageTimes* times, double StageTimes::*stage)
        : total(times != nullptr ? &(times->*stage) : nullptr), begin(times != nullptr ? now() : 0) {}
    ~StageTimer() {
        if (total != nullptr)
            *total += now() - begin;
    }
    StageTimer(const StageTimer&) = delete;
    StageTimer& operator=(const StageTimer&) = delete;

private:
    static double now() {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    }

    double* total;
    double begin;
};

} // namespace veldan

#endif
