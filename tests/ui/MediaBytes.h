#pragma once
// Small media files made from nothing, for the preview's tests and its benchmark: a WAV of
// silence and a motion-JPEG AVI, both of which GStreamer's base and good plugins play.

#include <QBuffer>
#include <QByteArray>
#include <QColor>
#include <QImage>
#include <QtEndian>
#include <vector>

namespace ql::test {

namespace media_detail {
inline void put32(QByteArray& b, quint32 v) {
  char c[4];
  qToLittleEndian(v, c);
  b.append(c, 4);
}
inline void put16(QByteArray& b, quint16 v) {
  char c[2];
  qToLittleEndian(v, c);
  b.append(c, 2);
}
// A chunk: its four letters, its size, its data, padded to an even length.
inline QByteArray chunk(const char* id, const QByteArray& data) {
  QByteArray b(id, 4);
  put32(b, static_cast<quint32>(data.size()));
  b += data;
  if (data.size() % 2) b += '\0';
  return b;
}
inline QByteArray list(const char* type, const QByteArray& data) { return chunk("LIST", QByteArray(type, 4) + data); }
}  // namespace media_detail

// `seconds` of silence as 8 kHz mono 16-bit PCM.
inline QByteArray wavBytes(int seconds = 1) {
  using namespace media_detail;
  const quint32 data = 16000u * static_cast<quint32>(seconds);
  QByteArray fmt;
  put16(fmt, 1);
  put16(fmt, 1);
  put32(fmt, 8000);
  put32(fmt, 16000);
  put16(fmt, 2);
  put16(fmt, 16);
  QByteArray body("WAVE");
  body += chunk("fmt ", fmt);
  body += chunk("data", QByteArray(static_cast<int>(data), '\0'));
  return chunk("RIFF", body);
}

// A motion-JPEG AVI of `frames` frames at 10 per second, each a flat colour of its own.
inline QByteArray mjpegAvi(int width, int height, int frames) {
  using namespace media_detail;
  std::vector<QByteArray> jpegs;
  for (int i = 0; i < frames; ++i) {
    QImage frame(width, height, QImage::Format_RGB32);
    frame.fill(QColor::fromHsv((i * 37) % 360, 200, 220));
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    frame.save(&buffer, "JPEG", 80);
    jpegs.push_back(jpeg);
  }
  QByteArray avih;
  for (quint32 v : {100000u, 0u, 0u, 0x10u /* has an index */, quint32(frames), 0u, 1u, 0u, quint32(width),
                    quint32(height), 0u, 0u, 0u, 0u})
    put32(avih, v);
  QByteArray strh("vidsMJPG", 8);
  for (quint32 v : {0u, 0u, 0u, 1u, 10u, 0u, quint32(frames), 0u, 0xffffffffu, 0u}) put32(strh, v);
  for (quint16 v : {quint16(0), quint16(0), quint16(width), quint16(height)}) put16(strh, v);
  QByteArray strf;
  put32(strf, 40);
  put32(strf, quint32(width));
  put32(strf, quint32(height));
  put16(strf, 1);
  put16(strf, 24);
  strf += "MJPG";
  for (quint32 v : {quint32(width * height * 3), 0u, 0u, 0u, 0u}) put32(strf, v);
  const QByteArray hdrl = list("hdrl", chunk("avih", avih) + list("strl", chunk("strh", strh) + chunk("strf", strf)));
  QByteArray movi("movi"), idx1;
  for (const QByteArray& jpeg : jpegs) {
    idx1 += "00dc";
    put32(idx1, 0x10);  // a key frame
    put32(idx1, static_cast<quint32>(movi.size()));
    put32(idx1, static_cast<quint32>(jpeg.size()));
    movi += chunk("00dc", jpeg);
  }
  return chunk("RIFF", QByteArray("AVI ") + hdrl + chunk("LIST", movi) + chunk("idx1", idx1));
}

}  // namespace ql::test
