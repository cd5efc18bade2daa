/*
 * Lists the profile store with a plain C loop, as a comparison for the run time of `ravctl list profiles`.
 *
 *   list_profiles        prints a line `directory<TAB>'name'` for each profile, sorted by name
 *
 * It makes the same calls for each file as the product: a relative open that never blocks, one fstat, one read and one
 * close. It collects all lines, sorts them and writes them with one call. It neither repairs names nor finds the active
 * profile, so it does less work than the product, never more.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

static const char root[] = "/etc/zuv/profiles";

struct profile {
  char* directory;
  char* name;
};

struct list {
  struct profile* items;
  size_t count;
  size_t room;
};

static void fail(const char* what) {
  fprintf(stderr, "list_profiles: %s: %s\n", what, strerror(errno));
  exit(1);
}

static char* copy(const char* text, size_t length) {
  char* made = malloc(length + 1);
  if (made == NULL) fail("memory");
  memcpy(made, text, length);
  made[length] = '\0';
  return made;
}

static int is_blank(char c) { return (signed char)c < 33 || c == 127; }

/* Returns the first line of `text` that is not blank, without the blanks around it; NULL if there is none. */
static char* first_line(const char* text, size_t length) {
  const char* const end = text + length;
  while (text < end) {
    const char* next = memchr(text, '\n', (size_t)(end - text));
    const char* stop = next != NULL ? next : end;
    const char* start = text;
    while (start < stop && is_blank(*start)) start++;
    while (stop > start && is_blank(stop[-1])) stop--;
    if (stop > start) return copy(start, (size_t)(stop - start));
    if (next == NULL) break;
    text = next + 1;
  }
  return NULL;
}

/* Returns the name of a profile; NULL if it has none. */
static char* read_name(int directory, const char* profile) {
  char path[NAME_MAX + sizeof "/profile_name"];
  char text[4096];
  size_t length = 0;
  struct stat info;
  snprintf(path, sizeof path, "%s/profile_name", profile);
  const int fd = openat(directory, path, O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return NULL;
  if (fstat(fd, &info) != 0) fail(path);
  if (S_ISREG(info.st_mode)) {
    /* One read gets the whole name file, or at least its first line. */
    const ssize_t got = read(fd, text, sizeof text);
    if (got < 0) fail(path);
    length = (size_t)got;
  }
  if (close(fd) != 0) fail(path);
  return first_line(text, length);
}

static int is_directory(int directory, const struct dirent* entry) {
  struct stat info;
  if (entry->d_type != DT_UNKNOWN) return entry->d_type == DT_DIR;
  return fstatat(directory, entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode);
}

static void append(struct list* list, const char* directory, char* name) {
  if (list->count == list->room) {
    list->room = list->room != 0 ? list->room * 2 : 64;
    list->items = realloc(list->items, list->room * sizeof *list->items);
    if (list->items == NULL) fail("memory");
  }
  list->items[list->count].directory = copy(directory, strlen(directory));
  list->items[list->count].name = name;
  list->count++;
}

static void read_store(struct list* list) {
  DIR* store = opendir(root);
  if (store == NULL) fail(root);
  const struct dirent* entry;
  while ((errno = 0, entry = readdir(store)) != NULL) {
    if (entry->d_name[0] == '.' || !is_directory(dirfd(store), entry)) continue;
    char* name = read_name(dirfd(store), entry->d_name);
    if (name != NULL) append(list, entry->d_name, name);
  }
  if (errno != 0) fail(root);
  if (closedir(store) != 0) fail(root);
}

static int by_name(const void* left, const void* right) {
  return strcmp(((const struct profile*)left)->name, ((const struct profile*)right)->name);
}

static void write_all(const char* text, size_t length) {
  while (length > 0) {
    const ssize_t written = write(STDOUT_FILENO, text, length);
    if (written < 0) fail("standard output");
    text += written;
    length -= (size_t)written;
  }
}

static void print(const struct list* list) {
  size_t length = 0;
  for (size_t i = 0; i < list->count; i++) {
    length += strlen(list->items[i].directory) + strlen(list->items[i].name) + strlen("\t''\n");
  }
  char* const text = malloc(length + 1);
  if (text == NULL) fail("memory");
  char* end = text;
  for (size_t i = 0; i < list->count; i++) {
    end = stpcpy(end, list->items[i].directory);
    end = stpcpy(end, "\t'");
    end = stpcpy(end, list->items[i].name);
    end = stpcpy(end, "'\n");
  }
  write_all(text, (size_t)(end - text));
  free(text);
}

static void release(struct list* list) {
  for (size_t i = 0; i < list->count; i++) {
    free(list->items[i].directory);
    free(list->items[i].name);
  }
  free(list->items);
}

int main(void) {
  struct list list = {NULL, 0, 0};
  read_store(&list);
  if (list.count != 0) qsort(list.items, list.count, sizeof *list.items, by_name);
  print(&list);
  release(&list);
  return 0;
}
