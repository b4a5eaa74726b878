// SPDX-License-Identifier: MIT
// Payloads: bytes as the server gives them, and what people read and write.

export interface Payload {
  form: 'VAL' | 'REF';
  size: number;
  hex: string; // of the first bytes, which may be all of them
}

export type Content = { values: number[] } | { hex: string } | Record<string, never>;

export function bytesOf(hex: string): Uint8Array {
  const bytes = new Uint8Array(hex.length / 2);
  for (let i = 0; i < bytes.length; ++i) bytes[i] = parseInt(hex.substr(2 * i, 2), 16);
  return bytes;
}

export function hexOf(bytes: Uint8Array): string {
  return Array.from(bytes, (byte) => byte.toString(16).padStart(2, '0')).join('');
}

/** The first 32-bit words, little-endian, three at most. */
export function wordsOf(payload: Payload): number[] {
  const bytes = bytesOf(payload.hex.slice(0, 24));
  const view = new DataView(bytes.buffer);
  const words: number[] = [];
  for (let at = 0; at + 4 <= bytes.length; at += 4) words.push(view.getUint32(at, true));
  return words;
}

/** The text of the bytes, if it is one; a zero byte at its end does not count. */
export function textOf(payload: Payload): string | null {
  if (payload.size === 0) return null;
  let bytes = bytesOf(payload.hex);
  if (bytes[bytes.length - 1] === 0) bytes = bytes.subarray(0, -1);
  if (bytes.length === 0) return null;
  try {
    const text = new TextDecoder('utf-8', { fatal: true }).decode(bytes);
    return /[\u0000-\u0008\u000b-\u001f\u007f]/.test(text) ? null : text;
  } catch {
    return null;
  }
}

/** A payload in one line. */
export function brief(payload: Payload): string {
  if (payload.size === 0) return 'empty';
  if (payload.form === 'VAL' && payload.size === 12) return wordsOf(payload).join(' ');
  const text = textOf(payload);
  if (text !== null) return `"${text.length > 60 ? text.slice(0, 60) + '…' : text}"`;
  const hex = payload.hex.slice(0, 48).replace(/(..)(?=.)/g, '$1 ');
  return payload.size > 24 ? `${hex} … ${payload.size} bytes` : hex;
}

/** Lines of 16 bytes: where, hexadecimal, characters. */
export function dump(payload: Payload): string {
  const bytes = bytesOf(payload.hex);
  const lines: string[] = [];
  for (let at = 0; at < bytes.length; at += 16) {
    const line = Array.from(bytes.subarray(at, at + 16));
    const hex = line.map((byte) => byte.toString(16).padStart(2, '0')).join(' ');
    const characters = line.map((byte) => (byte >= 32 && byte < 127 ? String.fromCharCode(byte) : '·')).join('');
    lines.push(`${at.toString(16).padStart(4, '0')}  ${hex.padEnd(47)}  ${characters}`);
  }
  if (bytes.length < payload.size) lines.push(`… ${payload.size - bytes.length} more bytes`);
  return lines.join('\n');
}

/** A number from 0 to 4294967295, decimal or with 0x; null for another text. */
export function parseValue(text: string): number | null {
  if (!/^(0x[0-9a-f]{1,8}|[0-9]{1,10})$/i.test(text.trim())) return null;
  const value = Number(text.trim());
  return value <= 0xffffffff ? value : null;
}

/** Pairs of hexadecimal digits, with blanks between them; null for another text. */
export function parseHex(text: string): string | null {
  return /^(\s*[0-9a-f]{2})*\s*$/i.test(text) ? text.replace(/\s/g, '') : null;
}

export function encode(text: string): string {
  return hexOf(new TextEncoder().encode(text));
}
