#include "Core/Exception.h"
#include "FaultyFiles.h"
#include "LoadedModule.h"
#include "StressSupport.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <span>

namespace {

using namespace FileSystemTests;
using namespace Stress;

/// The numbers of marks in the queue (see Mark), which are never handles of the pools.
constexpr unsigned int markBits = 0xFFF00000;
constexpr unsigned int markNumberBits = 0x0001FFFF;
constexpr unsigned int markThreadShift = 17;

/// The moment of a call, which tells whether a stop may have cut it off.
struct Moment
{
    std::uint64_t epoch;
    bool running;
};

/// One file system, stopped and restarted while it is used, with the requests to it and their
/// answers.
class Target
{
public:
    Target(LoadedModule& module, const std::string& name, Violations& violations,
           std::array<Mark, Settings::threads>& marks)
        : runtime(&module.GetRuntime())
        , object(module.MakeFileSystem(name))
        , violations(&violations)
        , marks(&marks)
        , subscription(runtime->Subscribe(
              object, [this](const EventRecorder::EventPointer& event) { Hear(*event); }))
    {}

    [[nodiscard]] const Core::NodeId& GetId() const { return object; }
    [[nodiscard]] HandlePool& GetHandles() { return handles; }

    [[nodiscard]] Moment GetMoment() const
    {
        const std::uint64_t now = epoch;
        return {now, now % 2 == 0};
    }
    /// True when no stop has begun since, so that the call must be taken and answered.
    [[nodiscard]] bool IsCertainSince(const Moment& moment) const
    {
        return moment.running && epoch == moment.epoch;
    }

    void Restart()
    {
        const std::lock_guard lock(restarting);
        ++epoch;
        runtime->StopBehaviour(object);
        runtime->StartBehaviour(object);
        ++epoch;
        ++restarts;
    }

    void NoteTaken(Method method, bool certain)
    {
        taken.Add(method);
        if (certain)
            mustAnswer.Add(method);
    }

    [[nodiscard]] std::uint64_t GetTaken(Method method) const { return taken.Get(method); }
    [[nodiscard]] std::uint64_t GetRestarts() const { return restarts; }
    [[nodiscard]] std::uint64_t GetEvents() const { return events; }
    [[nodiscard]] std::uint64_t GetListings() const { return listings; }
    [[nodiscard]] std::uint64_t GetCertainListings() const { return mustAnswer.Get(Method::List); }

    /// Expects an answer to every request that no stop could have cut off, and no other answers.
    void CheckAnswers()
    {
        CheckCount("exists", existences, {Method::Exists}, {});
        CheckCount("delete", deletions, {Method::Delete}, {});
        CheckCount("create", creations, {Method::CreateDirectory}, {});
        CheckCount("acknowledgement", acknowledgements, {Method::Close, Method::UploadFile},
                   {Method::Open, Method::OpenWrite, Method::Write, Method::WriteClose});
    }

private:
    void Hear(const Core::Embedding::Event& event)
    {
        ++events;
        if (event.source != object)
            violations->Add("an event of another object");
        switch (TypeNumber(event)) {
        case ackEvent:
            HearAcknowledgement(OwnField(event, "FileHandle").Get<unsigned int>(),
                                OwnField(event, "Result").Get<unsigned int>());
            break;
        case existsResultEvent:
            ++existences;
            static_cast<void>(OwnField(event, "Exist").Get<bool>());
            break;
        case deleteResultEvent:
            ++deletions;
            break;
        case createDirectoryResultEvent:
            ++creations;
            break;
        case listResultEvent:
            ++listings;
            if (OwnField(event, "LimitExceeded").Get<bool>())
                violations->Add("a small folder exceeded the limit of a listing");
            break;
        default:
            violations->Add("an event of an unknown type");
        }
    }

    void HearAcknowledgement(unsigned int handle, unsigned int result)
    {
        ++acknowledgements;
        if (result > 5)
            violations->Add("acknowledged " + std::to_string(handle) + " with " +
                            std::to_string(result));
        const unsigned int thread = (handle & ~markBits) >> markThreadShift;
        if ((handle & markBits) == markBits)
            marks->at(thread).Reach(handle);
    }

    void CheckCount(const std::string& what, std::uint64_t heard,
                    std::initializer_list<Method> always, std::initializer_list<Method> sometimes)
    {
        std::uint64_t least = 0;
        std::uint64_t most = 0;
        for (const Method method : always) {
            least += mustAnswer.Get(method);
            most += taken.Get(method);
        }
        for (const Method method : sometimes)
            most += taken.Get(method);
        if (heard < least || heard > most)
            violations->Add(what + " answers: " + std::to_string(heard) + ", not within " +
                            std::to_string(least) + " and " + std::to_string(most));
    }

    Core::Embedding::Runtime* runtime;
    Core::NodeId object;
    Violations* violations;
    std::array<Mark, Settings::threads>* marks;
    HandlePool handles;

    std::mutex restarting;
    std::atomic<std::uint64_t> epoch = 0; // odd from the beginning of a stop to the end of a start
    std::atomic<std::uint64_t> restarts = 0;

    MethodCounts taken;
    MethodCounts mustAnswer;
    std::atomic<std::uint64_t> events = 0;
    std::atomic<std::uint64_t> acknowledgements = 0;
    std::atomic<std::uint64_t> existences = 0;
    std::atomic<std::uint64_t> deletions = 0;
    std::atomic<std::uint64_t> creations = 0;
    std::atomic<std::uint64_t> listings = 0;
    Core::Embedding::EventSubscription subscription; // last: its callback uses all members above
};

/// The shared state of all callers.
struct Arena
{
    explicit Arena(const Settings& settings)
        : settings(settings)
    {}

    Settings settings;
    TemporaryFolder folder;
    Violations violations;
    std::array<Mark, Settings::threads> marks;
    LoadedModule module;
    std::array<Target, 2> targets{Target{module, "One", violations, marks},
                                  Target{module, "Other", violations, marks}};
    SessionPool sessions{module.GetRuntime()};
    std::atomic<std::uint64_t> callsBegun = 0;
    std::atomic<std::uint64_t> refused = 0;
    std::atomic<std::uint64_t> callsForEndedSessions = 0;
    std::atomic<std::uint64_t> unreadable = 0;
    std::atomic<std::uint64_t> subscriptions = 0;
    std::atomic<std::uint64_t> logSwitches = 0;
};

/// One thread that calls everything at random.
class Caller
{
public:
    Caller(Arena& arena, unsigned int number)
        : arena(&arena)
        , number(number)
        , engine(arena.settings.seed * Settings::threads + number)
    {}

    void Run()
    {
        while (true) {
            const std::uint64_t index = arena->callsBegun++;
            if (index >= arena->settings.calls)
                return;
            if (index % Settings::callsPerSession == 0)
                arena->sessions.EndOne(engine());
            if (index % Settings::callsPerRestart == 0)
                PickTarget().Restart();
            if (Happens(500))
                SwitchLog();
            if (Happens(500))
                SubscribeForAWhile();
            CallSomething(PickTarget());
            if (index % callsPerMark == 0)
                WaitForMark(PickTarget());
        }
    }

    /// The handles of this caller, by target.
    [[nodiscard]] const std::array<std::vector<unsigned int>, 2>& GetHandles() const
    {
        return given;
    }

private:
    static constexpr std::uint64_t callsPerMark = 24;

    [[nodiscard]] std::uint64_t Pick(std::uint64_t count) { return engine() % count; }
    [[nodiscard]] bool Happens(std::uint64_t onceIn) { return Pick(onceIn) == 0; }

    Target& PickTarget() { return arena->targets.at(Pick(2)); }

    std::string PickFolder() { return arena->folder / ("d" + std::to_string(Pick(4))); }
    std::string PickFile() { return PickFolder() + "/f" + std::to_string(Pick(6)); }
    std::string PickDeepFolder()
    {
        return PickFolder() + "/sub" + std::to_string(Pick(2)) + "/deep";
    }
    std::string PickAny()
    {
        switch (Pick(8)) {
        case 0:
            return PickFolder();
        case 1:
            return PickDeepFolder();
        case 2:
            return "";
        default:
            return PickFile();
        }
    }

    Bytes PickData()
    {
        Bytes data;
        data.resize(Happens(200) ? Pick(70'000) : Pick(300), 'x');
        return data;
    }

    Core::DateTime PickTime()
    {
        return Happens(3) ? Core::DateTime()
                          : Core::DateTime::FromUnixEpochTime(
                                static_cast<long>(Pick(4'000'000'000)) - 1'000'000'000);
    }

    unsigned char PickPermissions()
    {
        constexpr std::array<unsigned char, 4> choices{0, 0, 0x01, 0x04};
        return choices.at(Pick(choices.size()));
    }

    unsigned int PickHandle(Target& target)
    {
        const std::uint64_t choice = Pick(10);
        if (choice < 6)
            return target.GetHandles().Get(engine());
        const auto& own = given.at(GetIndex(target));
        if (choice == 9 || own.empty())
            return static_cast<unsigned int>(engine()) & ~markBits;
        return own.at(own.size() - 1 - Pick(std::min<std::uint64_t>(own.size(), 6)));
    }

    [[nodiscard]] std::size_t GetIndex(const Target& target) const
    {
        return static_cast<std::size_t>(&target - arena->targets.data());
    }

    Method PickMethod()
    {
        // The frequency of each call, in the order of the methods.
        static constexpr std::array<unsigned int, static_cast<std::size_t>(Method::Count)> weights{
            12, 8, 8, 8, 14, 5, 2, 2, 2, 4, 15, 3, 3, 8, 6};
        std::uint64_t rest = Pick(100);
        for (std::size_t i = 0; i < weights.size(); ++i) {
            if (rest < weights.at(i))
                return static_cast<Method>(i);
            rest -= weights.at(i);
        }
        return Method::Read;
    }

    Values MakeInputs(Target& target, Method method)
    {
        switch (method) {
        case Method::Open:
            return {PickFile(), static_cast<unsigned int>(Pick(8))};
        case Method::UploadFile:
            return {PickFile(), MakeBytesValue(PickData()), PickTime(), PickPermissions()};
        case Method::OpenWrite:
            return {PickFile(), MakeBytesValue(PickData())};
        case Method::Write:
            return {PickHandle(target), MakeBytesValue(PickData())};
        case Method::WriteClose:
            return {PickHandle(target), MakeBytesValue(PickData()), PickTime(), PickPermissions()};
        case Method::CreateDirectory:
            return {PickDeepFolder()};
        case Method::Delete:
            return {Core::Value(std::vector<std::string>{PickAny(), PickDeepFolder()})};
        case Method::List:
            return {PickFolder(), Happens(2)};
        case Method::Exists:
        case Method::GetDateTime:
            return {PickAny()};
        case Method::SetDateTime:
            return {PickAny(), PickTime()};
        case Method::Read:
            return {PickHandle(target), static_cast<unsigned int>(Pick(400))};
        case Method::SetPosition:
            return {PickHandle(target), static_cast<unsigned long>(Pick(400))};
        case Method::Close:
        case Method::GetPosition:
        case Method::Count:
            break;
        }
        return {PickHandle(target)};
    }

    void CallSomething(Target& target)
    {
        const Method method = PickMethod();
        Values inputs = MakeInputs(target, method);
        const bool unreadable = Happens(200);
        if (unreadable)
            inputs.front() = Core::Value(Core::NodeId(0, 1)); // no method takes one
        Call(target, method, inputs, unreadable);
    }

    /// True for a call that was taken and will be answered.
    bool Call(Target& target, Method method, const Values& inputs, bool unreadable = false)
    {
        // Kept for a while, so that it may have been ended by another caller.
        if (session == nullptr || Happens(20))
            session = arena->sessions.Get(engine());
        const Moment moment = target.GetMoment();
        try {
            const auto result =
                arena->module.GetRuntime().Call(session, target.GetId(), ToString(method), inputs);
            const bool certain = target.IsCertainSince(moment);
            // A Delete without an array is taken and deletes nothing.
            if (result.taken && unreadable && method != Method::Delete)
                arena->violations.Add(std::string(ToString(method)) + " took what it cannot read");
            if (result.taken)
                target.NoteTaken(method, certain);
            else
                NoteRefused(method, certain);
            TakeOutputs(target, method, result);
            return result.taken && certain;
        } catch (const Core::SessionClosedException&) {
            ++arena->callsForEndedSessions;
            session.reset();
        } catch (const Core::TypeMismatchException&) {
            ++arena->unreadable;
            if (!unreadable)
                arena->violations.Add(std::string(ToString(method)) + " could not read its inputs");
        } catch (const std::exception& exception) {
            arena->violations.Add(std::string(ToString(method)) + " threw " + exception.what());
        }
        return false;
    }

    void NoteRefused(Method method, bool certain)
    {
        ++arena->refused;
        if (certain)
            arena->violations.Add(std::string(ToString(method)) + " was refused while running");
    }

    void TakeOutputs(Target& target, Method method, const Core::Embedding::CallResult& result)
    {
        const bool makesHandle =
            method == Method::Open || method == Method::UploadFile || method == Method::OpenWrite;
        if (makesHandle && result.outputs.size() != (result.taken ? 1U : 0U))
            arena->violations.Add(std::string(ToString(method)) + " gave " +
                                  std::to_string(result.outputs.size()) + " outputs");
        if (!makesHandle || result.outputs.empty())
            return;
        const auto handle = result.outputs.front().Get<unsigned int>();
        if (handle == 0)
            arena->violations.Add(std::string(ToString(method)) + " gave the handle 0");
        given.at(GetIndex(target)).push_back(handle);
        target.GetHandles().Put(handle, engine());
    }

    /// Keeps the queue short, so that calls meet running requests and not only waiting ones.
    void WaitForMark(Target& target)
    {
        marksSet = (marksSet + 1) & markNumberBits;
        const unsigned int mark = markBits | (number << markThreadShift) | marksSet;
        auto& place = arena->marks.at(number);
        place.Expect(mark);
        if (Call(target, Method::Close, {mark}) && !place.Wait())
            arena->violations.Add("a request was never answered");
    }

    void SwitchLog()
    {
        Core::Embedding::LogControl::SetLevel("FileSystem", Happens(2) ? Core::LogLevel::Trace
                                                                       : Core::LogLevel::Error);
        ++arena->logSwitches;
    }

    void SubscribeForAWhile()
    {
        auto& target = PickTarget();
        std::atomic<unsigned int> heard = 0;
        auto subscription = arena->module.GetRuntime().Subscribe(
            target.GetId(), [&heard](const EventRecorder::EventPointer&) { ++heard; });
        CallSomething(target);
        WaitForMark(target);
        subscription.Reset();
        ++arena->subscriptions;
    }

    Arena* arena;
    unsigned int number;
    std::mt19937_64 engine;
    unsigned int marksSet = 0;
    std::shared_ptr<Core::Embedding::Session> session;
    std::array<std::vector<unsigned int>, 2> given;
};

/// Stresses calls, not a disk: the folder is in memory if the machine has such a place.
Settings Prepare()
{
    constexpr const char* memory = "/dev/shm";
    if (std::filesystem::is_directory(memory))
        ::setenv("TMPDIR", memory, 0); // NOLINT(concurrency-mt-unsafe): there are no threads yet
    return Settings::FromEnvironment();
}

class AModuleUnderStress : public testing::Test
{
protected:
    AModuleUnderStress()
    {
        Core::Embedding::LogControl::AddSink(sink);
        FaultyFiles::SetSeed(arena.settings.seed);
        for (int i = 0; i < 4; ++i)
            std::filesystem::create_directory(arena.folder / ("d" + std::to_string(i)));
    }
    ~AModuleUnderStress() override
    {
        FaultyFiles::SetRates({});
        Core::Embedding::LogControl::RemoveSink(sink);
        Core::Embedding::LogControl::ResetCategoryLevels();
    }

    void RunCallers()
    {
        std::vector<std::thread> threads;
        for (auto& caller : callers)
            threads.emplace_back([&caller] { caller.Run(); });
        for (auto& thread : threads)
            thread.join();
    }

    /// Expects an answer to every request. Expects that no handle is left:
    /// closing any of them fails, as for any number.
    void CheckTarget(std::size_t index)
    {
        auto& target = arena.targets.at(index);
        const Client client(arena.module.GetRuntime(), target.GetId(), "afterwards");
        {
            EventRecorder recorder(arena.module.GetRuntime(), target.GetId());
            static_cast<void>(WaitForBarrier(client, recorder)); // for the rest of the queue
        }
        target.NoteTaken(Method::Exists, true);
        target.CheckAnswers();
        for (const auto& caller : callers) {
            constexpr std::size_t portion = 10'000; // the most that a recorder keeps
            std::span<const unsigned int> handles(caller.GetHandles().at(index));
            while (!handles.empty()) {
                const auto some = handles.first(std::min(handles.size(), portion));
                EXPECT_EQ(CountRegistered(client, target.GetId(), some), 0U);
                handles = handles.subspan(some.size());
            }
        }
    }

    std::size_t CountRegistered(const Client& client, const Core::NodeId& object,
                                std::span<const unsigned int> handles)
    {
        EventRecorder recorder(arena.module.GetRuntime(), object);
        for (const unsigned int handle : handles)
            client.Close(handle);
        const Events events = WaitForBarrier(client, recorder);
        EXPECT_EQ(events.size(), handles.size());
        return static_cast<std::size_t>(
            std::count_if(events.begin(), events.end(), [](const auto& event) {
                return OwnField(*event, "Result").template Get<unsigned int>() != 3;
            }));
    }

    Settings settings = Prepare();
    Arena arena{settings};
    std::size_t descriptorsBefore = CountDescriptors();
    std::shared_ptr<WatchingSink> sink = std::make_shared<WatchingSink>(arena.violations);
    std::vector<Caller> callers = [this] {
        std::vector<Caller> made;
        for (unsigned int i = 0; i < Settings::threads; ++i)
            made.emplace_back(arena, i);
        return made;
    }();
};

void Print(const Arena& arena, const WatchingSink& sink, const FaultyFiles::Counts& files)
{
    const auto& [one, other] = arena.targets;
    std::printf(
        "threads %u, calls %lu (TALVENSOR_STRESS_CALLS), seed %lu (TALVENSOR_STRESS_SEED)\n",
        Settings::threads, arena.settings.calls, arena.settings.seed);
    for (unsigned int i = 0; i < static_cast<unsigned int>(Method::Count); ++i) {
        const auto method = static_cast<Method>(i);
        std::printf("  %-16s %lu taken\n", ToString(method),
                    one.GetTaken(method) + other.GetTaken(method));
    }
    std::printf("refused in a stop %lu, for ended sessions %lu, unreadable inputs %lu\n",
                arena.refused.load(), arena.callsForEndedSessions.load(), arena.unreadable.load());
    std::printf("sessions ended %lu, restarts %lu, events %lu, subscriptions %lu\n",
                arena.sessions.GetEnded(), one.GetRestarts() + other.GetRestarts(),
                one.GetEvents() + other.GetEvents(), arena.subscriptions.load());
    std::printf("log switches %lu, log entries %lu, broken listings %lu\n",
                arena.logSwitches.load(), sink.GetEntries(), sink.GetBrokenListings());
    std::printf("file calls: opens %lu, reads %lu, writes %lu, closes %lu\n", files.opens,
                files.reads, files.writes, files.closes);
    std::printf("failures injected: opens %lu, reads %lu, writes %lu, closes %lu; slowed %lu\n",
                files.openFailures, files.readFailures, files.writeFailures, files.closeFailures,
                files.slowed);
}

TEST_F(AModuleUnderStress, KeepsItsRules)
{
    const Watchdog watchdog([this] {
        return arena.callsBegun + arena.targets[0].GetEvents() + arena.targets[1].GetEvents();
    });
    FaultyFiles::SetRates({.openFails = 20'000,
                           .readFails = 20'000,
                           .writeFails = 20'000,
                           .closeFails = 20'000,
                           .slowed = 20'000});
    const auto filesBefore = FaultyFiles::GetCounts();
    RunCallers();
    arena.sessions.EndAll();
    FaultyFiles::SetRates({});
    CheckTarget(0);
    CheckTarget(1);
    Print(arena, *sink, FaultyFiles::GetCounts());

    const auto& [one, other] = arena.targets;
    EXPECT_GE(one.GetListings() + other.GetListings() + sink->GetBrokenListings(),
              one.GetCertainListings() + other.GetCertainListings());

    const auto files = FaultyFiles::GetCounts();
    EXPECT_EQ(files.streamsOpen, filesBefore.streamsOpen);
    EXPECT_EQ(files.usesOfClosed, filesBefore.usesOfClosed);
    EXPECT_EQ(files.closesOfUsed, filesBefore.closesOfUsed);
    EXPECT_EQ(FindDescriptorsBelow(arena.folder.GetPath()), std::vector<std::string>());
    EXPECT_EQ(CountDescriptors(), descriptorsBefore);
    EXPECT_EQ(arena.violations.GetCount(), 0U) << arena.violations.GetTexts();

    EXPECT_GE(arena.sessions.GetEnded(), settings.calls / Settings::callsPerSession);
    EXPECT_GE(one.GetRestarts() + other.GetRestarts(), settings.calls / Settings::callsPerRestart);
    for (unsigned int i = 0; i < static_cast<unsigned int>(Method::Count); ++i) {
        const auto method = static_cast<Method>(i);
        EXPECT_GT(one.GetTaken(method) + other.GetTaken(method), 0U) << ToString(method);
    }
}

} // namespace
