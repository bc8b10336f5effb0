#pragma once

#include <QByteArray>
#include <QImage>

// Deterministic sample content: the same call gives the same bytes on every run.
namespace DemoContent {

// Bytes that look random (and do not compress), from a seed.
QByteArray NoiseBytes(quint32 _uSeed, int _iSize);

// A drawn face portrait, different for every index.
QImage FacePicture(int _iIndex);
// A floor plan with rooms, corridors and camera marks.
QImage FloorPlan(int _iFloor);
// A camera snapshot: a scene of sky, ground and shapes with some sensor noise.
QImage Snapshot(int _iIndex);

// An image as PNG bytes (empty when it cannot be encoded).
QByteArray Png(const QImage& _image);

} // namespace DemoContent
