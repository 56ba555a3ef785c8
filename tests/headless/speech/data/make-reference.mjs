// Makes the reference fixture of the speech network tests: a few short signals and the
// speech probabilities that onnxruntime computes for them with the Silero VAD model, window by
// window, exactly as the detector streams them (context samples carried over, LSTM state carried
// over, the last partial window completed with zeros).
//
// Run once, when the model changes; the tests need neither Node nor onnxruntime:
//   cd tests/headless/speech/data
//   npm install --no-save --no-package-lock --ignore-scripts onnxruntime-node@1.23.2
//   node make-reference.mjs ~/.local/share/Corvane/models/silero_vad_op18_ifless.onnx
// (node_modules/ is ignored by git.) The signals are made with espeak-ng and sox and written as
// 16-bit WAV files beside this script; reference.json holds the probabilities.
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { readFileSync, writeFileSync, rmSync, mkdtempSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import * as ort from 'onnxruntime-node';

const modelPath = process.argv[2];
if (!modelPath) {
  console.error('usage: node make-reference.mjs MODEL.onnx');
  process.exit(2);
}
const here = new URL('.', import.meta.url).pathname;
const work = mkdtempSync(join(tmpdir(), 'corvane-vad-ref-'));

const sox = (...args) => execFileSync('sox', args, { stdio: ['ignore', 'ignore', 'inherit'] });

// The signals: lengths are deliberately not whole windows, so the zero-completed last window
// is part of the reference.
function makeSignals(rate) {
  const out = (name) => join(here, `${name}-${rate / 1000}k.wav`);
  const fmt = ['-r', String(rate), '-c', '1', '-b', '16', '-e', 'signed-integer'];
  const voice = join(work, 'voice.wav');
  execFileSync('espeak-ng', ['-v', 'en-us', '-s', '150', '-w', voice,
    'Loudness is measured over the dialogue, not over the music.']);
  // Speech with a little room noise under it, starting after a short pause.
  sox('-R', voice, ...fmt, join(work, 'v.wav'), 'rate', '-v', String(rate), 'norm', '-3', 'pad', '0.25', '0.1');
  sox('-R', '-n', ...fmt, join(work, 'floor.wav'), 'synth', '3.2', 'pinknoise', 'vol', '0.003');
  sox('-R', '-m', join(work, 'v.wav'), join(work, 'floor.wav'), ...fmt, out('speech'), 'trim', '0', '3.013');
  // Pink noise swelling from quiet to loud: the detector must not call noise speech.
  sox('-R', '-n', ...fmt, out('noise'), 'synth', '1.537', 'pinknoise', 'vol', '0.4', 'fade', 't', '0.6', '0', '0');
  // Music-like: a chord of harmonic tones with a slow tremolo and a note change.
  sox('-R', '-n', ...fmt, join(work, 'a.wav'), 'synth', '0.9', 'sine', '220', 'sine', '277.2', 'sine', '329.6',
    'sine', '440', 'tremolo', '5', '40', 'vol', '0.25');
  sox('-R', '-n', ...fmt, join(work, 'b.wav'), 'synth', '0.921', 'square', '196', 'sine', '246.9', 'sine', '293.7',
    'vol', '0.2');
  sox('-R', join(work, 'a.wav'), join(work, 'b.wav'), ...fmt, out('music'));
  // Digital silence.
  sox('-R', '-n', ...fmt, out('silence'), 'trim', '0', '0.611');
  return ['speech', 'noise', 'music', 'silence'].map((name) => ({ name, file: out(name) }));
}

function readWav16(path) {
  const bytes = readFileSync(path);
  let offset = 12;
  while (offset + 8 <= bytes.length) {
    const id = bytes.toString('ascii', offset, offset + 4);
    const size = bytes.readUInt32LE(offset + 4);
    if (id === 'data') {
      const samples = new Float32Array(size / 2);
      for (let i = 0; i < samples.length; ++i) samples[i] = bytes.readInt16LE(offset + 8 + 2 * i) / 32768;
      return samples;
    }
    offset += 8 + size + (size & 1);
  }
  throw new Error(`no data chunk in ${path}`);
}

async function probabilities(session, samples, rate) {
  const window = rate === 16000 ? 512 : 256;
  const contextLength = rate === 16000 ? 64 : 32;
  let context = new Float32Array(contextLength);
  let state = new ort.Tensor('float32', new Float32Array(2 * 128), [2, 1, 128]);
  const sr = new ort.Tensor('int64', BigInt64Array.from([BigInt(rate)]), []);
  const result = [];
  for (let start = 0; start < samples.length; start += window) {
    const input = new Float32Array(contextLength + window);
    input.set(context, 0);
    input.set(samples.subarray(start, Math.min(start + window, samples.length)), contextLength);
    const out = await session.run({ input: new ort.Tensor('float32', input, [1, input.length]), sr, state });
    result.push(out.output.data[0]);
    state = out.stateN;
    context = input.slice(input.length - contextLength);
  }
  return result;
}

const session = await ort.InferenceSession.create(modelPath, { intraOpNumThreads: 1, logSeverityLevel: 3 });
const cases = [];
for (const rate of [16000, 8000]) {
  for (const signal of makeSignals(rate)) {
    const samples = readWav16(signal.file);
    const probs = await probabilities(session, samples, rate);
    cases.push({
      file: signal.file.slice(here.length),
      sampleRate: rate,
      samples: samples.length,
      probabilities: probs.map((p) => Number(p.toPrecision(9))),
    });
  }
}
const reference = {
  generator: 'make-reference.mjs with onnxruntime-node ' + ort.env.versions.common,
  modelSHA256: createHash('sha256').update(readFileSync(modelPath)).digest('hex'),
  cases,
};
writeFileSync(join(here, 'reference.json'), JSON.stringify(reference, null, 1) + '\n');
rmSync(work, { recursive: true });
console.log(`wrote ${cases.length} cases to reference.json`);
