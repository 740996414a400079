#pragma once

// Three-component vectors and 3x3 matrices in 32-bit floats, as the sensor
// computations use them.
namespace QVMX {

struct Vector3 {
    float x = 0;
    float y = 0;
    float z = 0;

    float dot(const Vector3& o) const { return x * o.x + y * o.y + z * o.z; }
    Vector3 cross(const Vector3& o) const {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    float length() const;
    Vector3 operator/(float d) const { return {x / d, y / d, z / d}; }
};

struct Matrix3x3 {
    float m[3][3] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};

    static Matrix3x3 identity() { return {}; }
    // Row r dotted with v.
    float rowDot(int r, const Vector3& v) const { return m[r][0] * v.x + m[r][1] * v.y + m[r][2] * v.z; }
};

}  // namespace QVMX
