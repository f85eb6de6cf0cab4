#pragma once

void registerPipeEvents();
void registerPipeSends();
