// kt_crc_update against zlib's crc32, and the MD5 accumulator against
// OpenSSL's MD5, on the same buffers in the same run.
#include <random>
#include <vector>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <zlib.h>

#include "kt/checksum.h"

namespace {

const std::vector<unsigned char>& Buffer() {
  static std::vector<unsigned char> data = [] {
    std::vector<unsigned char> v(1 << 20);
    std::mt19937_64 rng(42);
    for (auto& b : v) b = static_cast<unsigned char>(rng());
    return v;
  }();
  return data;
}

void SetBytes(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

// Through the public entry point, so the timings are those of the method
// the library picks at run time: 512-bit folding from 256 bytes where the
// processor has VPCLMULQDQ and AVX-512, 128-bit folding from 64 bytes with
// PCLMULQDQ, tables below that. The label says which of the first two
// this processor allows.
void BM_Crc_kt(benchmark::State& state) {
  const auto& data = Buffer();
  for (auto _ : state)
    benchmark::DoNotOptimize(kt_crc_update(0, data.data(), static_cast<int>(state.range(0))));
  SetBytes(state);
  bool wide = __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx512bw") &&
              __builtin_cpu_supports("avx512vl");
  state.SetLabel(wide ? "cpu: vpclmulqdq, avx512" : "cpu: no vpclmulqdq/avx512");
}

void BM_Crc_zlib(benchmark::State& state) {
  const auto& data = Buffer();
  for (auto _ : state)
    benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(state.range(0))));
  SetBytes(state);
}

void BM_Md5_kt(benchmark::State& state) {
  const auto& data = Buffer();
  kt_md5ChecksumRec md5;
  for (auto _ : state) {
    md5.addn(data.data(), static_cast<unsigned long>(state.range(0)));
    benchmark::DoNotOptimize(md5.getValueAndReset());
  }
  SetBytes(state);
}

void BM_Md5_openssl(benchmark::State& state) {
  const auto& data = Buffer();
  EVP_MD_CTX* ctx = EVP_MD_CTX_new();
  const EVP_MD* md5 = EVP_md5();
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  for (auto _ : state) {
    EVP_DigestInit_ex(ctx, md5, nullptr);
    EVP_DigestUpdate(ctx, data.data(), static_cast<size_t>(state.range(0)));
    EVP_DigestFinal_ex(ctx, out, &len);
    benchmark::DoNotOptimize(out);
  }
  EVP_MD_CTX_free(ctx);
  SetBytes(state);
}

}  // namespace

BENCHMARK(BM_Crc_kt)->Arg(64)->Arg(4 << 10)->Arg(1 << 20);
BENCHMARK(BM_Crc_zlib)->Arg(64)->Arg(4 << 10)->Arg(1 << 20);
BENCHMARK(BM_Md5_kt)->Arg(64)->Arg(4 << 10)->Arg(1 << 20);
BENCHMARK(BM_Md5_openssl)->Arg(64)->Arg(4 << 10)->Arg(1 << 20);
