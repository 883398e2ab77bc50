// SPDX-License-Identifier: Apache-2.0
// Frame decoding throughput: every byte either side receives goes through it.
#include "Frame.h"

#include <benchmark/benchmark.h>

#include <string>

namespace {

using ornwick::qipc::FrameDecoder;

// Many frames of the given body size, fed in 4 KiB reads as a socket would deliver them.
void BM_DecodeFrames(benchmark::State& state) {
  std::string body(static_cast<size_t>(state.range(0)), 'x');
  std::string frame;
  ornwick::qipc::encodeFrame(body, &frame);
  std::string stream;
  while (stream.size() < (1u << 20))
    stream += frame;
  for (auto _ : state) {
    FrameDecoder decoder;
    std::string out, err;
    for (size_t at = 0; at < stream.size(); at += 4096) {
      decoder.feed(stream.data() + at, std::min<size_t>(4096, stream.size() - at));
      while (decoder.next(&out, &err) == FrameDecoder::Status::kFrame)
        benchmark::DoNotOptimize(out);
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stream.size()));
}
BENCHMARK(BM_DecodeFrames)->Arg(64)->Arg(1024)->Arg(64 * 1024);

}  // namespace
