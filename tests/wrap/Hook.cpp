#include "wrap/Hook.h"

#include <algorithm>

namespace test
{
namespace
{

struct Record
{
    std::mutex mutex;
    bool on = false;
    std::vector<Call> calls;
};

Record& TheRecord()
{
    static Record& record = *new Record; // wrapped calls come until the process ends
    return record;
}

} // namespace

CallRecorder::CallRecorder()
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    record.on = true;
    record.calls.clear();
}

CallRecorder::~CallRecorder()
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    record.on = false;
}

std::vector<Call> CallRecorder::Calls() const
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    return record.calls;
}

std::vector<Call> CallRecorder::Calls(const std::vector<std::string>& names) const
{
    std::vector<Call> calls = Calls();
    calls.erase(
        std::remove_if(calls.begin(), calls.end(),
                       [&](const Call& call)
                       { return std::find(names.begin(), names.end(), call.name) == names.end(); }),
        calls.end());
    return calls;
}

int CallRecorder::Count(const std::string& name) const
{
    return static_cast<int>(Calls({name}).size());
}

void CallRecorder::Note(const char* name, const void* subject, long detail)
{
    Record& record = TheRecord();
    const std::lock_guard<std::mutex> lock(record.mutex);
    if (record.on)
    {
        record.calls.push_back({name, subject, detail});
    }
}

} // namespace test
