// SPDX-License-Identifier: MIT
//
// What single pieces of the library cost, next to the plainest way to do the same.
#include <Poco/Logger.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "Layout.h"
#include "MapText.h"
#include "PeerConnection.h"
#include "Register.h"
#include "RegisterMap.h"
#include "RegisterType.h"
#include "TemporaryDirectory.h"
#include "VaduDriver.h"
#include "support/FileDescriptor.h"
#include "support/ValueFile.h"

namespace {

constexpr int VALUE = 48250;

/// A file as the kernel shows a value.
class Sample {
 public:
    const std::string& path() const { return file; }

 private:
    TemporaryDirectory directory;
    std::string file = directory.file("value", std::to_string(VALUE) + "\n");
};

// ---- value files

void readValueFile(benchmark::State& state) {
    const Sample sample;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ValueFile::read(sample.path()));
    }
}
BENCHMARK(readValueFile)->Name("read a value/ValueFile");

void readRaw(benchmark::State& state) {
    const Sample sample;
    for (auto _ : state) {
        std::array<char, 64> text;
        const FileDescriptor file(open(sample.path().c_str(), O_RDONLY | O_CLOEXEC));
        const ssize_t got = read(file.get(), text.data(), text.size() - 1);
        text.at(static_cast<std::size_t>(got)) = '\0';
        benchmark::DoNotOptimize(std::atoi(text.data()));
    }
}
BENCHMARK(readRaw)->Name("read a value/open, read, close, atoi");

void readStream(benchmark::State& state) {
    const Sample sample;
    for (auto _ : state) {
        int value = 0;
        std::ifstream file(sample.path());
        file >> value;
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(readStream)->Name("read a value/std::ifstream");

void writeValueFile(benchmark::State& state) {
    const Sample sample;
    for (auto _ : state) {
        ValueFile::write(sample.path(), VALUE);
    }
}
BENCHMARK(writeValueFile)->Name("write a value/ValueFile");

void writeRaw(benchmark::State& state) {
    const Sample sample;
    for (auto _ : state) {
        std::array<char, 12> text;
        const char* const end = std::to_chars(text.begin(), text.end(), VALUE).ptr;
        const FileDescriptor file(open(sample.path().c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
        benchmark::DoNotOptimize(
            write(file.get(), text.data(), static_cast<std::size_t>(end - text.data())));
    }
}
BENCHMARK(writeRaw)->Name("write a value/open, write, close");

void writeStream(benchmark::State& state) {
    const Sample sample;
    for (auto _ : state) {
        std::ofstream file(sample.path());
        file << VALUE;
    }
}
BENCHMARK(writeStream)->Name("write a value/std::ofstream");

// ---- registers

/// A virtual register as the map holds it, of which the compiler knows only the base class.
std::shared_ptr<Register> virtualRegister() {
    auto reg = std::make_shared<Register>(VIRTUAL_FIRST, RegisterType::VIRTUAL, 1, 32,
                                          std::function<void(Register*)>());
    benchmark::DoNotOptimize(reg);
    return reg;
}

void readRegister(benchmark::State& state) {
    const auto reg = virtualRegister();
    for (auto _ : state) {
        benchmark::DoNotOptimize(reg->readValue());
    }
}
BENCHMARK(readRegister)->Name("virtual register/readValue");

void writeRegister(benchmark::State& state) {
    const auto reg = virtualRegister();
    for (auto _ : state) {
        reg->writeValue(VALUE);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(writeRegister)->Name("virtual register/writeValue");

void nameOfType(benchmark::State& state) {
    const auto type = static_cast<RegisterType>(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(getTypeName(type).data());
    }
}
BENCHMARK(nameOfType)
    ->Name("getTypeName")
    ->Arg(static_cast<int>(RegisterType::RELAY))
    ->Arg(static_cast<int>(RegisterType::CPU_TEMP))
    ->Arg(static_cast<int>(RegisterType::UNKNOWN));

// ---- the register map

/// The map with all registers, loaded or about to be.
class LargestMap {
 public:
    explicit LargestMap(const std::string& text) : file(directory.file("map.json", text)) {
        drivers.addDriver(std::make_shared<VaduDriver>());
        create();
    }

    void create() {
        registers.reset();
        registers = std::make_unique<RegisterMap>(connection.service(), file, drivers);
    }

    RegisterMap& get() const { return *registers; }

 private:
    TemporaryDirectory directory;
    std::string file;
    DriverManager drivers;
    PeerConnection connection;
    std::unique_ptr<RegisterMap> registers;
};

void findRegister(benchmark::State& state) {
    const LargestMap map(mapOfFewFields());
    map.get().parse();
    constexpr int STRIDE = 389;  // has no divisor in common with the number of registers
    int place = 0;
    for (auto _ : state) {
        place = (place + STRIDE) % REGISTER_COUNT;
        benchmark::DoNotOptimize(map.get().getRegisterByAddress(addressAt(place)).get());
    }
}
BENCHMARK(findRegister)->Name("getRegisterByAddress among 1,401");

void loadMap(benchmark::State& state, const std::string& text) {
    LargestMap map(text);
    for (auto _ : state) {
        state.PauseTiming();
        map.create();
        state.ResumeTiming();
        map.get().parse();
    }
}
BENCHMARK_CAPTURE(loadMap, few, mapOfFewFields())
    ->Name("load 1,401 registers/3 fields")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(loadMap, many, mapOfManyFields())
    ->Name("load 1,401 registers/1,401 fields")
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    // The level is that of the service, where a line that is not logged costs only a look at the
    // level.
    Poco::Logger::root().setLevel(Poco::Message::PRIO_NOTICE);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return EXIT_FAILURE;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
