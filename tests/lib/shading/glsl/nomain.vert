#version 330 core
// Compiles on its own but can't link: a vertex stage needs main.
vec4 helper(vec4 v)
{
    return v * 2.0;
}
