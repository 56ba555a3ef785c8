// The reference of speech_detection_bench: onnxruntime-node running the Silero VAD model over a
// 16 kHz mono signal window by window, as a streaming detector does (context and state carried
// over). Reads raw little-endian float32 samples, writes the probabilities the same way, and
// prints the seconds the windows took as JSON on standard output.
//   node silero-onnxruntime.mjs MODEL.onnx SAMPLES.f32 PROBABILITIES.f32 THREADS
import { readFileSync, writeFileSync } from 'node:fs';
import * as ort from 'onnxruntime-node';

const [modelPath, samplesPath, outPath, threads] = process.argv.slice(2);
const raw = readFileSync(samplesPath);
const samples = new Float32Array(raw.buffer, raw.byteOffset, raw.byteLength / 4);
const session = await ort.InferenceSession.create(modelPath, {
  intraOpNumThreads: Number(threads || 1), interOpNumThreads: 1, logSeverityLevel: 3,
});
const window = 512, contextLength = 64;
const sr = new ort.Tensor('int64', BigInt64Array.from([16000n]), []);
let state = new ort.Tensor('float32', new Float32Array(256), [2, 1, 128]);
const input = new Float32Array(contextLength + window);
const windows = Math.ceil(samples.length / window);
const probabilities = new Float32Array(windows);
const started = process.hrtime.bigint();
for (let w = 0; w < windows; ++w) {
  const start = w * window;
  input.copyWithin(0, window, window + contextLength);
  if (w === 0) input.fill(0, 0, contextLength);
  input.fill(0, contextLength);
  input.set(samples.subarray(start, Math.min(start + window, samples.length)), contextLength);
  const out = await session.run({ input: new ort.Tensor('float32', input.slice(), [1, input.length]), sr, state });
  probabilities[w] = out.output.data[0];
  state = out.stateN;
}
const seconds = Number(process.hrtime.bigint() - started) / 1e9;
writeFileSync(outPath, Buffer.from(probabilities.buffer));
console.log(JSON.stringify({ seconds, windows }));
