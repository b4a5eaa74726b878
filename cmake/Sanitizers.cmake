# KEL_SANITIZER is empty, "address" (with undefined behaviour) or "thread".
set(KEL_SANITIZER "" CACHE STRING "Build everything with this sanitizer: address, thread or none")

if(KEL_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
elseif(KEL_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
endif()
