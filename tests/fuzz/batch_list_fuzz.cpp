// Fuzz target: any bytes as a batch list read without a crash, every job kept holds terminated
// words no longer than the input, the count returned is the jobs in the list, and all free again.
#include <cstdlib>
#include <cstring>

#include "tests/fuzz/fuzz_file.h"
#include "tool/run/batch_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const FuzzFile list("batch", data, size);
    int count = OpenBatchFile(list.path.c_str());
    size_t length = 0;
    for (const BatchJob* job = JobList; job; job = job->Next, --count)
        length += std::strlen(job->Map) + std::strlen(job->SaveAs) + std::strlen(job->Script);
    if (count != 0 || length > size) std::abort();
    FreeJobList();
    return 0;
}
