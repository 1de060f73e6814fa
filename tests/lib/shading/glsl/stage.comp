#version 430 core
layout(local_size_x = 1) in;
layout(std430, binding = 0) buffer Data
{
    uint values[];
};
void main()
{
    values[gl_GlobalInvocationID.x] += 1u;
}
