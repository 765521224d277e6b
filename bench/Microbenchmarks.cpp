// The hot paths one by one.
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <string>

#include "Corpus.h"
#include "Md5.h"
#include "Mutex.h"
#include "Normalize.h"
#include "PatternContainer.h"
#include "PatternLineReader.h"
#include "io/IOBuffer.h"
#include "io/MemBufferBase.h"
#include "io/RegularFile.h"
#include "io/SmartBufferBase.h"
#include "utils/Crc.h"

namespace {

using namespace ZOV_SPACE;

void countBytes(benchmark::State& state, std::size_t bytesAnIteration) {
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytesAnIteration));
}

void md5(benchmark::State& state) {
    const std::string data = corpus::randomBytes(1, static_cast<std::size_t>(state.range(0)));
    unsigned char digest[Md5::kDigestSize];
    for (auto _ : state) {
        Md5 context;
        context.MD5Update(data.data(), data.size());
        context.MD5Final(digest);
        benchmark::DoNotOptimize(digest);
    }
    countBytes(state, data.size());
}
BENCHMARK(md5)->Arg(64)->Arg(4096)->Arg(1 << 20);

void crc32(benchmark::State& state) {
    const std::string data = corpus::randomBytes(1, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        Iso3309Crc crc;
        benchmark::DoNotOptimize(crc.add(data.data(), static_cast<unsigned>(data.size())));
    }
    countBytes(state, data.size());
}
BENCHMARK(crc32)->Arg(100)->Arg(1 << 20);

void crc32OfZlib(benchmark::State& state) {
    const std::string data = corpus::randomBytes(1, static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            ::crc32(0, reinterpret_cast<const Bytef*>(data.data()), static_cast<uInt>(data.size())));
    }
    countBytes(state, data.size());
}
BENCHMARK(crc32OfZlib)->Arg(100)->Arg(1 << 20);

void patternLines(benchmark::State& state) {
    const corpus::Folder folder;
    const std::string path = folder / "lines.hdb";
    corpus::writeHdb(path, {100'000});
    for (auto _ : state) {
        PatternLineReader reader(openRegularFile(path.c_str()));
        PatternLine line;
        while (reader.next(line)) benchmark::DoNotOptimize(line.text.data());
    }
    countBytes(state, std::filesystem::file_size(path));
}
BENCHMARK(patternLines);

void loadMd5Records(benchmark::State& state) {
    const corpus::Folder folder;
    const std::string path = folder / "records.hdb";
    corpus::writeHdb(path, {100'000});
    for (auto _ : state) {
        PatternContainer container;
        benchmark::DoNotOptimize(container.loadPattern(path));
    }
    state.SetItemsProcessed(state.iterations() * 100'000);
}
BENCHMARK(loadMd5Records);

void loadCheckSumRecords(benchmark::State& state) {
    const corpus::Folder folder;
    const std::string path = folder / "records.chk";
    corpus::writeChk(path, {"", false, 0, 0x10000}, 100'000);
    for (auto _ : state) {
        PatternContainer container;
        benchmark::DoNotOptimize(container.loadPattern(path));
    }
    state.SetItemsProcessed(state.iterations() * 100'000);
}
BENCHMARK(loadCheckSumRecords);

void readLock(benchmark::State& state) {
    RWLock lock;
    for (auto _ : state) {
        lock.rdlock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}
BENCHMARK(readLock);

void writeLock(benchmark::State& state) {
    RWLock lock;
    for (auto _ : state) {
        lock.wrlock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
}
BENCHMARK(writeLock);

constexpr int kAppended = 1 << 16;

void appendBytes(benchmark::State& state) {
    for (auto _ : state) {
        MemBufferBase buffer;
        for (int i = 0; i < kAppended; ++i) buffer.append('x');
        benchmark::DoNotOptimize(buffer.getSize());
    }
    countBytes(state, kAppended);
}
BENCHMARK(appendBytes);

void appendPieces(benchmark::State& state) {
    const std::string piece(4096, 'x');
    for (auto _ : state) {
        MemBufferBase buffer;
        for (int i = 0; i < kAppended; i += 4096) buffer.append(piece.data(), 4096);
        benchmark::DoNotOptimize(buffer.getSize());
    }
    countBytes(state, kAppended);
}
BENCHMARK(appendPieces);

void normalizeText(benchmark::State& state) {
    std::string text;
    while (text.size() + 64 <= 65536) text += "    Some Indented LINE of a script, as long as they usually are\r\n";
    SmartBufferBase buffer(static_cast<long>(text.size()));
    buffer.append(text.data(), static_cast<int>(text.size()));
    for (auto _ : state) {
        IOBuffer cursor(&buffer);
        benchmark::DoNotOptimize(normalize(&cursor));
    }
    countBytes(state, text.size());
}
BENCHMARK(normalizeText);

}  // namespace

BENCHMARK_MAIN();
