// SPDX-License-Identifier: GPL-2.0-only
/*
 * The boards of a device without their hardware: publishes /sys/kernel/kr62 and /sys/kernel/pd5-N.
 * What the hardware would do is written to /sys/kernel/boards/set as a path below /sys/kernel and a
 * value: "kr62/inputs/3/value 1".
 */
#include <linux/kobject.h>
#include <linux/list.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/slab.h>
#include <linux/sysfs.h>

#define MAX_EXPANDERS 16

/* The IOs of a kind are numbered from 1. */
static unsigned int relays = 8;
module_param(relays, uint, 0444);
MODULE_PARM_DESC(relays, "relays of each board");
static unsigned int inputs = 8;
module_param(inputs, uint, 0444);
MODULE_PARM_DESC(inputs, "digital inputs of each board");
static unsigned int analogs = 4;
module_param(analogs, uint, 0444);
MODULE_PARM_DESC(analogs, "analog inputs of each board");
static unsigned int expanders[MAX_EXPANDERS] = { 1, 2, 3, 4 };
static unsigned int expander_count = 4;
module_param_array(expanders, uint, &expander_count, 0444);
MODULE_PARM_DESC(expanders, "numbers of the expanders that are fitted");

/* One attribute with a value of its own. */
struct point {
	struct kobj_attribute attribute;
	struct list_head all;
	struct kobject *directory;
	const char *const *words;	/* what the values are called, if not by their number */
	u32 value;
	u32 highest;
	struct point *counter;		/* of an input's value */
	struct point *edge;
	struct point *counter_edge;
};

enum edge { NONE, RISING, FALLING, BOTH };
static const char *const EDGES[] = { "none", "rising", "falling", "both", NULL };

struct directory {
	struct list_head all;
	struct kobject *kobject;
};

static LIST_HEAD(points);
static LIST_HEAD(directories);		/* the innermost first */
static DEFINE_MUTEX(lock);		/* guards the values */

static struct point *point_of(struct kobj_attribute *attribute)
{
	return container_of(attribute, struct point, attribute);
}

static ssize_t show(struct kobject *object, struct kobj_attribute *attribute, char *text)
{
	struct point *point = point_of(attribute);
	u32 value = READ_ONCE(point->value);

	if (point->words)
		return sysfs_emit(text, "%s\n", point->words[value]);
	return sysfs_emit(text, "%u\n", value);
}

static ssize_t store(struct kobject *object, struct kobj_attribute *attribute, const char *text,
		     size_t length)
{
	struct point *point = point_of(attribute);
	u32 value;
	int word;

	if (point->words) {
		word = __sysfs_match_string(point->words, -1, text);
		if (word < 0)
			return word;
		value = word;
	} else {
		int error = kstrtou32(text, 10, &value);

		if (error)
			return error;
		if (value > point->highest)
			return -EINVAL;
	}
	mutex_lock(&lock);
	WRITE_ONCE(point->value, value);
	mutex_unlock(&lock);
	return length;
}

/* Whether a change to this value is an edge of the kind that is asked for. */
static bool is_wanted(u32 edge, u32 value)
{
	return edge == BOTH || edge == (value ? RISING : FALLING);
}

/* What the hardware does; a board interrupts for the edges of an input that are asked for. */
static void change(struct point *point, u32 value)
{
	bool told = true;

	if (point->value == value)
		return;
	WRITE_ONCE(point->value, value);
	if (point->edge) {
		told = is_wanted(point->edge->value, value);
		if (is_wanted(point->counter_edge->value, value))
			WRITE_ONCE(point->counter->value, point->counter->value + 1);
	}
	if (told)
		sysfs_notify(point->directory, NULL, point->attribute.attr.name);
}

/* The point at a path below /sys/kernel; NULL without one. */
static struct point *find(const char *path)
{
	struct point *point;

	list_for_each_entry(point, &points, all) {
		char *directory = kobject_get_path(point->directory, GFP_KERNEL);
		char *whole = directory ? kasprintf(GFP_KERNEL, "%s/%s", directory,
						    point->attribute.attr.name) : NULL;
		bool same = whole && !strcmp(whole + strlen("/kernel/"), path);

		kfree(whole);
		kfree(directory);
		if (same)
			return point;
	}
	return NULL;
}

static ssize_t set_store(struct kobject *object, struct kobj_attribute *attribute,
			 const char *text, size_t length)
{
	struct point *point;
	char path[64];
	u32 value;

	if (sscanf(text, "%63s %u", path, &value) != 2)
		return -EINVAL;
	point = find(path);
	if (!point)
		return -ENOENT;
	if (point->words || value > point->highest)
		return -EINVAL;
	mutex_lock(&lock);
	change(point, value);
	mutex_unlock(&lock);
	return length;
}

static struct kobj_attribute set_attribute = __ATTR_WO(set);

static ssize_t info_io_show(struct kobject *object, struct kobj_attribute *attribute, char *text)
{
	return sysfs_emit(text, "relays %u\ninputs %u\noutputs 0\nanalogs %u\n", relays, inputs,
			  analogs);
}

static struct kobj_attribute info_io_attribute = __ATTR_RO(info_io);

/* These return NULL when there is no memory, and take NULL for a directory that failed. */

static struct kobject *make_directory(struct kobject *parent, const char *name)
{
	struct directory *directory = parent ? kzalloc(sizeof(*directory), GFP_KERNEL) : NULL;

	if (!directory)
		return NULL;
	directory->kobject = kobject_create_and_add(name, parent);
	if (!directory->kobject) {
		kfree(directory);
		return NULL;
	}
	list_add(&directory->all, &directories);
	return directory->kobject;
}

static struct kobject *make_numbered(struct kobject *parent, unsigned int number)
{
	char name[12];

	snprintf(name, sizeof(name), "%u", number);
	return make_directory(parent, name);
}

static struct point *make_point(struct kobject *directory, const char *name, umode_t mode,
				u32 value, u32 highest)
{
	struct point *point = directory ? kzalloc(sizeof(*point), GFP_KERNEL) : NULL;

	if (!point)
		return NULL;
	sysfs_attr_init(&point->attribute.attr);
	point->attribute.attr.name = name;
	point->attribute.attr.mode = mode;
	point->attribute.show = show;
	point->attribute.store = mode & 0200 ? store : NULL;
	point->directory = directory;
	point->value = value;
	point->highest = highest;
	if (sysfs_create_file(directory, &point->attribute.attr)) {
		kfree(point);
		return NULL;
	}
	list_add_tail(&point->all, &points);
	return point;
}

static bool make_relays(struct kobject *parent, unsigned int count)
{
	for (unsigned int i = 1; i <= count; i++)
		if (!make_point(make_numbered(parent, i), "value", 0644, 0, 1))
			return false;
	return parent;
}

static bool make_inputs(struct kobject *parent)
{
	for (unsigned int i = 1; i <= inputs; i++) {
		struct kobject *directory = make_numbered(parent, i);
		struct point *value = make_point(directory, "value", 0444, 0, 1);
		struct point *counter = make_point(directory, "counter", 0644, 0, U32_MAX);
		struct point *edge = make_point(directory, "edge", 0644, NONE, BOTH);
		struct point *counter_edge = make_point(directory, "counter_edge", 0644, NONE, BOTH);

		if (!value || !counter || !edge || !counter_edge)
			return false;
		edge->words = EDGES;
		counter_edge->words = EDGES;
		value->counter = counter;
		value->edge = edge;
		value->counter_edge = counter_edge;
	}
	return parent;
}

/* The analog inputs of an expander are off until they are enabled. */
static bool make_analogs(struct kobject *parent, bool with_enable)
{
	for (unsigned int i = 1; i <= analogs; i++) {
		struct kobject *directory = make_numbered(parent, i);

		if (!make_point(directory, "value", 0444, 0, U16_MAX))
			return false;
		if (with_enable && !make_point(directory, "enable", 0644, 0, 1))
			return false;
	}
	return parent;
}

static bool make_led(struct kobject *parent, unsigned int number)
{
	struct kobject *directory = make_numbered(parent, number);

	return make_point(directory, "color", 0644, 1, 7) &&
	       make_point(directory, "brightness", 0644, 0, 15);
}

static bool make_kr62(void)
{
	struct kobject *board = make_directory(kernel_kobj, "kr62");
	struct kobject *leds = make_directory(board, "leds");
	struct kobject *analog = make_directory(board, "analogs");

	return board && !sysfs_create_file(board, &info_io_attribute.attr) &&
	       make_relays(make_directory(board, "relays"), relays) &&
	       make_inputs(make_directory(board, "inputs")) &&
	       make_relays(make_directory(board, "pullups"), inputs) &&
	       make_analogs(analog, false) &&
	       make_point(analog, "analog_ref", 0444, 4096, U16_MAX) &&
	       make_point(board, "analog_ref", 0444, 4096, U16_MAX) &&
	       make_point(board, "supply_current", 0444, 2048, U16_MAX) &&
	       make_point(board, "supply_voltage", 0444, 2048, U16_MAX) &&
	       make_point(board, "usb_enable", 0644, 0, 1) &&
	       make_led(leds, 3) && make_led(leds, 12);
}

static bool make_pd5(unsigned int number)
{
	struct kobject *board;
	char name[16];

	snprintf(name, sizeof(name), "pd5-%u", number);
	board = make_directory(kernel_kobj, name);
	return board && !sysfs_create_file(board, &info_io_attribute.attr) &&
	       make_relays(make_directory(board, "relays"), relays) &&
	       make_inputs(make_directory(board, "inputs")) &&
	       make_analogs(make_directory(board, "analogs"), true);
}

static void remove_all(void)
{
	struct directory *directory, *next_directory;
	struct point *point, *next_point;

	/* With its directory goes an attribute, once nobody is in it. */
	list_for_each_entry_safe(directory, next_directory, &directories, all) {
		kobject_del(directory->kobject);
		kobject_put(directory->kobject);
		kfree(directory);
	}
	list_for_each_entry_safe(point, next_point, &points, all)
		kfree(point);
	INIT_LIST_HEAD(&directories);
	INIT_LIST_HEAD(&points);
}

static int __init boards_init(void)
{
	struct kobject *control;
	bool made = make_kr62();

	for (unsigned int i = 0; made && i < expander_count; i++)
		made = make_pd5(expanders[i]);
	/* Last, so that it finds everything and is the first to go. */
	control = made ? make_directory(kernel_kobj, "boards") : NULL;
	if (control && !sysfs_create_file(control, &set_attribute.attr))
		return 0;
	remove_all();
	return -ENOMEM;
}

static void __exit boards_exit(void)
{
	remove_all();
}

module_init(boards_init);
module_exit(boards_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Boards of the IO Mapping project without their hardware");
