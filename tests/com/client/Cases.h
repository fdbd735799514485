#pragma once

namespace cases {

void EarlyBound();
void DeviceConversions();
void LateBound();
void Events();
void Identity();
void ByteArrays();
void TypeLibraryNames();
void Unload();

}  // namespace cases
