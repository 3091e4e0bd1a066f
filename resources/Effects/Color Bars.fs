/*{
    "DESCRIPTION": "Seven colour bars over a row of check bars, to line up colours and levels.",
    "CREDIT": "Lumaveil",
    "CATEGORIES": ["Generator"],
    "INPUTS": [
        {"NAME": "level", "LABEL": "Level", "TYPE": "float", "DEFAULT": 0.75, "MIN": 0.1, "MAX": 1.0}
    ]
}*/

// White, yellow, cyan, green, magenta, red, blue.
const vec3 bars[7] = vec3[7](vec3(1.0, 1.0, 1.0), vec3(1.0, 1.0, 0.0), vec3(0.0, 1.0, 1.0), vec3(0.0, 1.0, 0.0),
                             vec3(1.0, 0.0, 1.0), vec3(1.0, 0.0, 0.0), vec3(0.0, 0.0, 1.0));
// Under each bar the bar two places to its right, or black: blue, black, magenta, black, cyan, black, white.
const int checks[7] = int[7](6, -1, 4, -1, 2, -1, 0);

void main()
{
    int column = clamp(int(floor(gl_FragCoord.x * 7.0 / RENDERSIZE.x)), 0, 6);
    bool upper = gl_FragCoord.y >= RENDERSIZE.y / 3.0;
    int bar = upper ? column : checks[column];
    vec3 color = bar < 0 ? vec3(0.0) : bars[bar] * level;
    gl_FragColor = vec4(color, 1.0);
}
